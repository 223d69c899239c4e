#include "chop/TransientDetection.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

namespace marquetry::chop {
namespace {

using audio::test::numberedFrames;
using audio::test::pcm16;

// A 16-bit record, silent but for single-frame clicks (frame, level) in its
// last channel.
audio::WavData clicks(std::int64_t frames, const std::vector<std::pair<FrameIndex, std::int16_t>>& hits,
                      std::uint16_t channels = 1) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames * channels), 0);
    for (const auto& [at, level] : hits)
        samples[static_cast<std::size_t>((at + 1) * channels - 1)] = level;
    return pcm16(channels, samples);
}

// The last frame holds one of its two channels only.
TEST(FrameAmplitude, TakesTheLoudestChannelAndReadsNothingOutsideTheData) {
    const auto wav = pcm16(2, {100, -32767, 16384, 0, -32768});
    EXPECT_EQ(frameAmplitude(wav, 0), 1.0f);
    EXPECT_EQ(frameAmplitude(wav, 1), 16384.0f / 32767.0f);
    EXPECT_GT(frameAmplitude(wav, 2), 1.0f); // the most negative 16-bit value is not limited
    EXPECT_EQ(frameAmplitude(wav, 3), 0.0f);
    EXPECT_EQ(frameAmplitude(wav, -1), 0.0f);
}

TEST(TransientBoundaries, CutAtTheStrongestRisesOrElseFillEvenly) {
    auto eightBit = clicks(1024, {{100, 20000}, {700, 30000}});
    eightBit.bitsPerSample = 8;
    const Boundaries evenEighths{0, 128, 256, 384, 512, 640, 768, 896, 1024};
    const struct {
        const char* name;
        audio::WavData wav;
        std::int64_t slices;
        Boundaries expected;
    } cases[] = {
        {"one frame per slice", numberedFrames(4), 4, {0, 1, 2, 3, 4}},
        {"fewer frames than slices", numberedFrames(2), 4, {0, 1, 2}},
        {"no frames", numberedFrames(0), 4, {0}},
        {"silence", clicks(1024, {}), 8, evenEighths},
        {"silence kept half a spacing apart", clicks(40, {}), 4, {0, 20, 40}},
        {"8-bit reads as silence", eightBit, 8, evenEighths},
        {"rises", clicks(100000, {{25000, 8000}, {50000, 16000}, {75000, 24000}}), 4, {0, 25000, 50000, 75000, 100000}},
        {"equal rises, earlier frame first", clicks(1200, {{900, 20000}, {300, 20000}}), 2, {0, 300, 1200}},
        {"rise too close to frame 0", clicks(640, {{20, 30000}, {200, 10000}}), 2, {0, 200, 640}},
        {"louder channel of stereo", clicks(4000, {{1000, 12000}}, 2), 2, {0, 1000, 4000}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(buildTransientBoundaries(c.wav, c.slices), c.expected) << c.name;
}

// The detector's steps done the plain way: every rise ranked by a stable
// sort, every candidate compared with every pick.
Boundaries plainTransientBoundaries(const audio::WavData& wav, std::int64_t sliceCount) {
    const FrameCount total = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    std::vector<std::pair<FrameIndex, float>> ranked;
    float previous = frameAmplitude(wav, 0);
    for (FrameIndex f = 1; f < total; ++f) {
        const float amplitude = frameAmplitude(wav, f);
        if (amplitude > previous) // ranking stops at the first score of 0
            ranked.emplace_back(f, amplitude - previous);
        previous = amplitude;
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    const FrameCount spacing = std::max<FrameCount>(total / (2 * sliceCount), 32);
    Boundaries picks{0};
    const auto isClear = [&](FrameIndex f, FrameCount apart) {
        return std::none_of(picks.begin(), picks.end(), [&](FrameIndex p) { return std::abs(p - f) < apart; });
    };
    for (const auto& candidate : ranked) {
        if (std::ssize(picks) == sliceCount)
            break;
        if (isClear(candidate.first, spacing))
            picks.push_back(candidate.first);
    }
    const FrameCount step = std::max<FrameCount>(total / sliceCount, 1);
    for (FrameIndex c = 0; c < total && std::ssize(picks) < sliceCount; c += step)
        if (isClear(c, spacing / 2))
            picks.push_back(c);
    std::sort(picks.begin(), picks.end());
    picks.push_back(total);
    return picks;
}

// Random clicks, some of equal level, at spacings from the 32-frame minimum
// to a sixth of a two-million-frame loop, so every reach of the pick search
// runs.
TEST(TransientBoundaries, AgreeWithThePlainStepsForRandomClicks) {
    const struct {
        std::int64_t frames, slices, hits;
    } cases[] = {{2'100'000, 6, 400}, {100'000, 300, 2000}, {50'000, 2000, 5000}, {4000, 100, 400}};
    std::uint64_t state = 12345;
    const auto random = [&](std::uint64_t bound) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return (state >> 33) % bound;
    };
    for (const auto& c : cases) {
        // Louder towards the middle, in steps of 1000 so that levels tie: the
        // strongest picks come first and turn away many neighbours.
        std::vector<std::pair<FrameIndex, std::int16_t>> hits;
        for (std::int64_t i = 0; i < c.hits; ++i) {
            const auto at = static_cast<FrameIndex>(random(static_cast<std::uint64_t>(c.frames)));
            hits.emplace_back(at, static_cast<std::int16_t>(1000 * (30 - 29 * std::abs(at - c.frames / 2) / c.frames)));
        }
        const audio::WavData wav = clicks(c.frames, hits);
        EXPECT_EQ(buildTransientBoundaries(wav, c.slices), plainTransientBoundaries(wav, c.slices))
            << c.frames << " frames, " << c.slices << " slices";
    }
}

} // namespace
} // namespace marquetry::chop
