#include "chop/TransientDetection.hpp"

#include "TestRecords.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace marquetry::chop {
namespace {

// A mono 16-bit record that is silent but for a constant level from each
// listed frame on: each entry is (frame, level).
audio::WavData steps(std::int64_t frames, const std::vector<std::pair<FrameIndex, std::int16_t>>& levels) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames), 0);
    for (const auto& [from, level] : levels)
        std::fill(samples.begin() + from, samples.end(), level);
    return test::pcm16(1, samples);
}

// A mono 16-bit record, silent but for single-frame clicks at the given frames.
audio::WavData clicks(std::int64_t frames, const std::vector<std::pair<FrameIndex, std::int16_t>>& hits) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames), 0);
    for (const auto& [at, level] : hits)
        samples[static_cast<std::size_t>(at)] = level;
    return test::pcm16(1, samples);
}

TEST(FrameAmplitude, TakesTheLoudestChannelOfEachFormat) {
    const auto stereo = test::pcm16(2, {100, -32767, 16384, 0, -32768, 0});
    EXPECT_FLOAT_EQ(frameAmplitude(stereo, 0), 1.0f);
    EXPECT_EQ(frameAmplitude(stereo, 1), 16384.0f / 32767.0f);
    EXPECT_GT(frameAmplitude(stereo, 2), 1.0f); // most negative 16-bit value is not limited

    audio::WavData floats;
    floats.audioFormat = audio::formatFloat;
    floats.channels = 2;
    floats.blockAlign = 8;
    floats.bitsPerSample = 32;
    for (const float v : {2.5f, 0.25f, std::nanf(""), 0.0f, -0.5f, 0.125f}) {
        std::uint8_t bytes[4];
        std::memcpy(bytes, &v, 4);
        floats.pcmData.insert(floats.pcmData.end(), bytes, bytes + 4);
    }
    EXPECT_EQ(frameAmplitude(floats, 0), 1.0f);
    EXPECT_EQ(frameAmplitude(floats, 1), 1.0f);
    EXPECT_EQ(frameAmplitude(floats, 2), 0.5f);

    audio::WavData pcm32 = test::pcm16(1, {0, static_cast<std::int16_t>(0x8000)}); // bytes 00 00 00 80
    pcm32.blockAlign = 4;
    pcm32.bitsPerSample = 32;
    EXPECT_EQ(frameAmplitude(pcm32, 0), 1.0f);

    auto eightBit = test::pcm16(1, {0x7F7F, 0x7F7F});
    eightBit.bitsPerSample = 8;
    EXPECT_EQ(frameAmplitude(eightBit, 1), 0.0f);
}

TEST(FrameAmplitude, ReadsNothingOutsideTheData) {
    // Four channels of 16 bits declared in a 2-byte frame: only channel 0 of
    // the last frame lies inside the buffer.
    auto wav = test::pcm16(1, {10, 20, 30000});
    wav.channels = 4;
    EXPECT_EQ(frameAmplitude(wav, 2), 30000.0f / 32767.0f);
    EXPECT_EQ(frameAmplitude(wav, 3), 0.0f);
    EXPECT_EQ(frameAmplitude(wav, -1), 0.0f);
    wav.channels = 0;
    EXPECT_EQ(frameAmplitude(wav, 0), 0.0f);
}

TEST(TransientBoundaries, GiveOneFramePerSliceForShortSources) {
    EXPECT_EQ(buildTransientBoundaries(test::numberedFrames(4), 4), (Boundaries{0, 1, 2, 3, 4}));
    EXPECT_EQ(buildTransientBoundaries(test::numberedFrames(2), 4), (Boundaries{0, 1, 2}));
    EXPECT_EQ(buildTransientBoundaries(test::numberedFrames(0), 4), (Boundaries{0}));
}

TEST(TransientBoundaries, FallBackToTheEvenFillWithoutRises) {
    EXPECT_EQ(buildTransientBoundaries(steps(1024, {}), 8), (Boundaries{0, 128, 256, 384, 512, 640, 768, 896, 1024}));
    EXPECT_EQ(buildTransientBoundaries(steps(40, {}), 4), (Boundaries{0, 20, 40}));
    auto eightBit = steps(1024, {{100, 20000}, {700, 30000}});
    eightBit.bitsPerSample = 8;
    EXPECT_EQ(buildTransientBoundaries(eightBit, 8), buildTransientBoundaries(steps(1024, {}), 8));
}

TEST(TransientBoundaries, CutAtTheRises) {
    EXPECT_EQ(buildTransientBoundaries(steps(100000, {{25000, 8000}, {50000, 16000}, {75000, 24000}}), 4),
              (Boundaries{0, 25000, 50000, 75000, 100000}));
}

TEST(TransientBoundaries, RankEqualRisesByFrameAndKeepTheirDistance) {
    // Room for one transient only: of two equal rises the earlier frame wins.
    EXPECT_EQ(buildTransientBoundaries(clicks(1200, {{900, 20000}, {300, 20000}}), 2), (Boundaries{0, 300, 1200}));
    // A rise 20 frames in is too close to frame 0; the weaker one is taken.
    EXPECT_EQ(buildTransientBoundaries(clicks(640, {{20, 30000}, {200, 10000}}), 2), (Boundaries{0, 200, 640}));
}

TEST(TransientBoundaries, UseTheLouderChannelOfStereo) {
    std::vector<std::int16_t> samples(2 * 4000, 0);
    for (std::size_t f = 1000; f < 4000; ++f)
        samples[2 * f + 1] = 12000; // right channel only
    EXPECT_EQ(buildTransientBoundaries(test::pcm16(2, samples), 2), (Boundaries{0, 1000, 4000}));
}

} // namespace
} // namespace marquetry::chop
