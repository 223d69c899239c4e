// The engine on real drum breaks, converted from FLAC by the build.
#include "audio/WavReader.hpp"
#include "chop/GlitchEffects.hpp"
#include "chop/PatternGenerators.hpp"
#include "chop/Slicing.hpp"
#include "chop/TransientDetection.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace marquetry::chop {
namespace {

audio::WavData loadLoop(const std::string& name) {
    return audio::loadWav(std::string(MARQUETRY_TEST_LOOPS_DIR) + "/" + name);
}

const char* const allLoops[] = {"amen_s16.wav", "amen_s24.wav", "amen_s32.wav", "amen_f32.wav",
                                "amen_mono_s16.wav", "breakbeat_s16.wav"};

// Variations as a Generate run builds them: one generator, every source
// sliced first, then per variation its pattern and, for Glitch, the effects
// of each placed slice in playing order.
std::vector<Bytes> variations(const audio::WavData& wav, ChopModel model, std::uint64_t seed, int count) {
    SeededGenerator rng(seed);
    const auto slices = createSlices(wav, 16, model, rng);
    std::vector<Bytes> result;
    for (int v = 0; v < count; ++v) {
        Bytes pcm;
        for (const std::int64_t index : generatePattern(model, static_cast<std::int64_t>(slices.size()), rng)) {
            const Slice& slice = slices[static_cast<std::size_t>(index)];
            const Bytes placed = model == ChopModel::glitch ? applyGlitchEffects(slice, wav, 0.55, rng) : slice;
            pcm.insert(pcm.end(), placed.begin(), placed.end());
        }
        result.push_back(std::move(pcm));
    }
    return result;
}

std::uint64_t fnv1a(const std::vector<Bytes>& buffers) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const Bytes& buffer : buffers)
        for (const std::uint8_t byte : buffer)
            hash = (hash ^ byte) * 0x100000001b3ull;
    return hash;
}

TEST(RealLoops, SlicesTileTheSourceUnderEveryModel) {
    for (const char* name : allLoops) {
        const auto wav = loadLoop(name);
        for (const ChopModel model : allChopModels) {
            SeededGenerator rng(7);
            Bytes joined;
            for (const Slice& slice : createSlices(wav, 16, model, rng)) {
                ASSERT_FALSE(slice.empty());
                ASSERT_EQ(slice.size() % wav.blockAlign, 0u);
                joined.insert(joined.end(), slice.begin(), slice.end());
            }
            EXPECT_EQ(joined, wav.pcmData) << name << ' ' << label(model);
        }
    }
}

TEST(RealLoops, TransientBoundariesFallOnHits) {
    // Eight drum one-shots (kick, hat, snare, ...) starting every 11025 frames.
    const auto wav = loadLoop("hits_mono_s16.wav");
    constexpr FrameCount hitSpacing = 11025;
    const Boundaries boundaries = buildTransientBoundaries(wav, 8);
    ASSERT_EQ(boundaries.size(), 9u);
    // The sharpest rise of a hit comes within its first few milliseconds.
    for (FrameIndex hit = 1; hit < 8; ++hit) {
        EXPECT_GE(boundaries[static_cast<std::size_t>(hit)], hit * hitSpacing);
        EXPECT_LT(boundaries[static_cast<std::size_t>(hit)], hit * hitSpacing + 1024);
    }
}

TEST(RealLoops, SameSeedGivesTheSameBytesAndAnotherSeedDoesNot) {
    const auto wav = loadLoop("amen_s16.wav");
    for (const ChopModel model : allChopModels) {
        const auto first = variations(wav, model, 1234, 4);
        EXPECT_EQ(first, variations(wav, model, 1234, 4)) << label(model);
        EXPECT_NE(first, variations(wav, model, 1235, 4)) << label(model);
    }
}

// Pinned output of a fixed seed: any change to a draw, its order or the
// arithmetic of an effect changes the variations users get from their seeds.
TEST(RealLoops, FixedSeedGivesTheKnownVariations) {
    const std::pair<ChopModel, std::uint64_t> known[] = {
        {ChopModel::grid, 0xdd3cce044a51ab45},      {ChopModel::transient, 0x967201edc11b522c},
        {ChopModel::dice, 0x5eff53dc7974f342},      {ChopModel::swarm, 0x48825d71ce6210d8},
        {ChopModel::glitch, 0x1f4d462a2fa24ff2},    {ChopModel::pivot, 0xbf019829edd49285},
        {ChopModel::interlock, 0x3b7459c805e868d2}, {ChopModel::drift, 0xf88a63a4d3faa77f},
        {ChopModel::momentum, 0x6ab19113a5fcf5f4},
    };
    const auto wav = loadLoop("amen_s16.wav");
    for (const auto& [model, hash] : known)
        EXPECT_EQ(fnv1a(variations(wav, model, 42, 3)), hash) << label(model);
}

} // namespace
} // namespace marquetry::chop
