// The engine on real drum breaks, converted from FLAC by the build.
#include "audio/WavReader.hpp"
#include "chop/TransientDetection.hpp"
#include "chop/VariationPlan.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace marquetry::chop {
namespace {

audio::WavData loadLoop(const char* name) {
    return audio::loadWav(audio::test::testLoopPath(name));
}

const char* const allLoops[] = {"amen_s16.wav", "amen_s24.wav", "amen_s32.wav", "amen_f32.wav",
                                "amen_mono_s16.wav", "breakbeat_s16.wav"};

// Variations as a Generate run builds them: planned from one generator,
// then rendered.
std::vector<Bytes> variations(const audio::WavData& wav, ChopModel model, std::uint64_t seed, int count,
                              unsigned threads = 1) {
    SeededGenerator rng(seed);
    const std::vector<audio::WavData> sources{wav};
    const PlanSettings settings{16, model, count, 0.55};
    const RunPlan plan = planRun(sources, settings, rng);
    std::vector<Bytes> result;
    for (RenderedVariation& variation : renderVariations(plan.variations, plan.pool, sources, 1000, settings, threads))
        result.push_back(std::move(variation.pcm));
    return result;
}

std::uint64_t fnv1a(const std::vector<Bytes>& buffers) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const Bytes& buffer : buffers)
        for (const std::uint8_t byte : buffer)
            hash = (hash ^ byte) * 0x100000001b3ull;
    return hash;
}

// Every model cuts every format of the break, pooled with a second loop, into
// slices that cover each source frame for frame.
TEST(RealLoops, PoolSlicesTileEachSourceUnderEveryModel) {
    for (const char* name : allLoops) {
        const std::vector<audio::WavData> sources{loadLoop(name), loadLoop("breakbeat_s16.wav")};
        for (const ChopModel model : allChopModels) {
            SeededGenerator rng(7);
            std::vector<FrameIndex> covered(sources.size());
            for (const PoolSlice& slice : planRun(sources, {16, model, 0, 0.55}, rng).pool) {
                FrameIndex& next = covered.at(static_cast<std::size_t>(slice.source));
                ASSERT_TRUE(slice.start == next && slice.frames > 0) << name << ' ' << label(model);
                next += slice.frames;
            }
            for (std::size_t i = 0; i < sources.size(); ++i)
                EXPECT_EQ(covered[i], audio::frameCount(sources[i].pcmData.size(), sources[i].blockAlign)) << name;
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

TEST(RealLoops, SameSeedGivesTheSameBytesOnAnyThreadCountAndAnotherSeedDoesNot) {
    const auto wav = loadLoop("amen_s16.wav");
    for (const ChopModel model : allChopModels) {
        const auto first = variations(wav, model, 1234, 7);
        EXPECT_EQ(first, variations(wav, model, 1234, 7, 4)) << label(model);
        EXPECT_NE(first, variations(wav, model, 1235, 7)) << label(model);
    }
}

// Whatever a consumer reads off the plan (markers, MIDI, a manifest) must be
// where the bytes really are: each placement holds exactly the bytes of its
// pool slice, treated as planned, at its offset.
TEST(RealLoops, PlacementsTileEachVariationWithTheBytesOfTheirSlices) {
    const std::vector<audio::WavData> sources{loadLoop("amen_s16.wav"), loadLoop("breakbeat_s16.wav")};
    for (const ChopModel model : allChopModels) {
        SeededGenerator rng(99);
        const RunPlan plan = planRun(sources, {12, model, 3, 0.9}, rng);
        for (const VariationPlan& variation : plan.variations) {
            const Bytes pcm = renderVariation(variation, plan.pool, sources);
            ASSERT_EQ(static_cast<std::int64_t>(pcm.size()), variation.byteCount) << label(model);
            std::int64_t next = 0;
            for (const Placement& placement : variation.placements) {
                ASSERT_EQ(placement.byteOffset, next) << label(model);
                ASSERT_EQ(placement.byteCount % sources[0].blockAlign, 0) << label(model);
                const PoolSlice& slice = plan.pool[static_cast<std::size_t>(placement.slice)];
                const auto& source = sources[static_cast<std::size_t>(slice.source)];
                const auto from = source.pcmData.begin() + slice.start * source.blockAlign;
                const Bytes treated = applyGlitchTreatment(
                    std::span(from, from + slice.frames * source.blockAlign), placement.treatment, sources[0]);
                ASSERT_TRUE(std::equal(treated.begin(), treated.end(), pcm.begin() + placement.byteOffset,
                                       pcm.begin() + placement.byteOffset + placement.byteCount))
                    << label(model);
                next += placement.byteCount;
            }
            EXPECT_EQ(next, variation.byteCount);
        }
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
