#include "audio/WaveformEnvelope.hpp"
#include "audio/WavReader.hpp"

#include "support/WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <tuple>

namespace marquetry::audio {
namespace {

using test::record;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

Bytes float32(std::initializer_list<float> samples) {
    Bytes out;
    for (const float s : samples)
        test::putLE(out, std::bit_cast<std::uint32_t>(s), 4);
    return out;
}

// Quotients taken in single precision, as the envelope takes them.
const double half16 = 16384.0f / 32767.0f;
const double half24 = 4194304.0f / 8388607.0f;

TEST(WaveformEnvelope, AimsForTheRequestedPointsInWholeFrameSteps) {
    const struct {
        FrameCount frames;
        std::size_t extraBytes;
        std::int64_t points;
        std::size_t expected;
    } cases[] = {{44100, 0, 1000, 1003}, {100000, 0, 1000, 1000}, {10, 0, 1000, 10},
                 {100, 0, 1, 34} /* never fewer than 32 */, {60, 0, 1, 60}, {3, 1, 1000, 3} /* partial frame ignored */};
    for (const auto& c : cases) {
        const Bytes silence(static_cast<std::size_t>(c.frames) * 2 + c.extraBytes);
        const std::vector<double> envelope = waveformEnvelope(record(1, 1, 2, 16, silence), c.points);
        EXPECT_EQ(envelope.size(), c.expected) << c.frames << " frames";
        EXPECT_THAT(envelope, Each(0.0));
    }
}

TEST(WaveformEnvelope, BucketsAreRunsOfStepFramesWithAShortLastOne) {
    Bytes pcm(44100 * 2);
    for (const std::size_t frame : {43u, 44u, 44087u, 44099u})
        pcm[2 * frame + 1] = 0x40;
    const std::vector<double> envelope = waveformEnvelope(record(1, 1, 2, 16, pcm), 1000);
    ASSERT_EQ(envelope.size(), 1003u);
    std::vector<std::size_t> loud;
    for (std::size_t i = 0; i < envelope.size(); ++i)
        if (envelope[i] > 0)
            loud.push_back(i);
    EXPECT_THAT(loud, ElementsAre(0, 1, 1001, 1002));
}

// Widths the envelope does not read give silence; narrower than a byte, nothing.
TEST(WaveformEnvelope, ScalesEachWidthOfOneMonoSample) {
    const std::tuple<const char*, std::uint16_t, std::uint16_t, Bytes, std::vector<double>> cases[] = {
        {"16-bit most negative, limited to 1", 1, 16, {0x00, 0x80}, {1.0}},
        {"16-bit half", 1, 16, {0x00, 0x40}, {half16}},
        {"24-bit most negative, limited to 1", 1, 24, {0x00, 0x00, 0x80}, {1.0}},
        {"24-bit half", 1, 24, {0x00, 0x00, 0x40}, {half24}},
        {"24-bit minus one", 1, 24, {0xFF, 0xFF, 0xFF}, {1.0f / 8388607.0f}},
        {"32-bit most negative", 1, 32, {0x00, 0x00, 0x00, 0x80}, {1.0}},
        {"32-bit in single precision", 1, 32, {0x01, 0x00, 0x00, 0x01}, {0x1p-7}},
        {"float negative quarter", 3, 32, float32({-0.25f}), {0.25}},
        {"float above one, limited", 3, 32, float32({1.5f}), {1.0}},
        {"float NaN, full scale", 3, 32, float32({std::numeric_limits<float>::quiet_NaN()}), {1.0}},
        {"8-bit", 1, 8, {0x7F}, {0.0}},
        {"64-bit float", 3, 64, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, {0.0}},
        {"4-bit", 1, 4, {0x7F}, {}},
    };
    for (const auto& [name, format, bits, sample, expected] : cases) {
        const auto size = static_cast<std::uint16_t>(sample.size());
        EXPECT_EQ(waveformEnvelope(record(format, 1, size, bits, sample), 1000), expected) << name;
    }
}

TEST(WaveformEnvelope, TakesTheLouderChannel) {
    // 16384 and -8192, then the other way round.
    EXPECT_THAT(waveformEnvelope(record(1, 2, 4, 16, {0, 0x40, 0, 0xE0, 0, 0xE0, 0, 0x40}), 1000), Each(half16));
    EXPECT_THAT(waveformEnvelope(record(3, 2, 8, 32, float32({-0.5f, 0.125f})), 1000), ElementsAre(0.5));
}

// A header may claim more channel bytes than a frame holds; the last frames
// then reach past the buffer, and those samples must read as silence rather
// than be read at all. The buffer is allocated to the byte so that the
// address sanitizer sees any overrun.
TEST(WaveformEnvelope, ReadsNothingPastTheData) {
    const struct {
        WavData format;
        Bytes pcm;
        std::vector<double> expected;
    } cases[] = {
        {record(1, 3, 2, 16), {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0x7F}, {0, 0, 1, 1, 1}},
        {record(1, 2, 3, 24), {0, 0, 0, 0, 0, 0, 0, 0, 0x40}, {0, half24, half24}},
        {record(3, 2, 4, 32), float32({0.25f, 0.5f, 0.75f}), {0.5, 0.75, 0.75}},
    };
    for (const auto& c : cases) {
        const auto exact = std::make_unique<std::uint8_t[]>(c.pcm.size());
        std::memcpy(exact.get(), c.pcm.data(), c.pcm.size());
        EXPECT_THAT(waveformEnvelope(c.format, std::span(exact.get(), c.pcm.size()), 1000),
                    ElementsAreArray(c.expected));
    }
}

// Every reading format of the same break draws the same picture (the 16-bit
// one takes the packed fast path, the others read sample by sample), and the
// overload for a variation's bytes matches the one for a whole record.
TEST(WaveformEnvelope, RealLoopLooksTheSameInEveryFormat) {
    const std::vector<double> reference = waveformEnvelope(loadWav(test::testLoopPath("amen_s16.wav")), 1000);
    ASSERT_EQ(reference.size(), 1005u); // 77321 frames in buckets of 77
    EXPECT_GT(*std::max_element(reference.begin(), reference.end()), 0.5);
    for (const char* file : {"amen_s24.wav", "amen_s32.wav", "amen_f32.wav"}) {
        const WavData wav = loadWav(test::testLoopPath(file));
        const std::vector<double> envelope = waveformEnvelope(wav, 1000);
        ASSERT_EQ(envelope.size(), reference.size());
        for (std::size_t i = 0; i < envelope.size(); ++i)
            ASSERT_NEAR(envelope[i], reference[i], 1e-4) << file << ", bucket " << i;
        EXPECT_EQ(waveformEnvelope(record(wav.audioFormat, 2, wav.blockAlign, wav.bitsPerSample, {1, 2, 3}),
                                   wav.pcmData, 1000),
                  envelope);
    }
}

} // namespace
} // namespace marquetry::audio
