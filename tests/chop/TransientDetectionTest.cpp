#include "chop/TransientDetection.hpp"

#include "support/TestRecords.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace marquetry::chop {
namespace {

// A 16-bit record, silent but for single-frame clicks (frame, level) in its
// last channel.
audio::WavData clicks(std::int64_t frames, const std::vector<std::pair<FrameIndex, std::int16_t>>& hits,
                      std::uint16_t channels = 1) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames * channels), 0);
    for (const auto& [at, level] : hits)
        samples[static_cast<std::size_t>((at + 1) * channels - 1)] = level;
    return test::pcm16(channels, samples);
}

// The last frame holds one of its two channels only.
TEST(FrameAmplitude, TakesTheLoudestChannelAndReadsNothingOutsideTheData) {
    const auto wav = test::pcm16(2, {100, -32767, 16384, 0, -32768});
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
        {"one frame per slice", test::numberedFrames(4), 4, {0, 1, 2, 3, 4}},
        {"fewer frames than slices", test::numberedFrames(2), 4, {0, 1, 2}},
        {"no frames", test::numberedFrames(0), 4, {0}},
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

} // namespace
} // namespace marquetry::chop
