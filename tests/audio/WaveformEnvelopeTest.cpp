#include "audio/WaveformEnvelope.hpp"
#include "audio/WavReader.hpp"

#include "WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>

namespace marquetry::audio {
namespace {

using test::putLE;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

WavData layout(std::uint16_t format, std::uint16_t channels, std::uint16_t blockAlign, std::uint16_t bits,
               Bytes pcm = {}) {
    return {format, channels, 44100, 44100u * blockAlign, blockAlign, bits, std::move(pcm)};
}

Bytes float32(std::initializer_list<float> samples) {
    Bytes out;
    for (const float s : samples)
        putLE(out, std::bit_cast<std::uint32_t>(s), 4);
    return out;
}

// Quotients taken in single precision, as the envelope takes them.
const double half16 = 16384.0f / 32767.0f;
const double half24 = 4194304.0f / 8388607.0f;

struct CountCase {
    const char* name;
    FrameCount frames;
    std::size_t extraBytes;
    std::int64_t points;
    std::size_t expected;
};

const CountCase countCases[] = {
    {"OneSecondAt44100GivesStep44", 44100, 0, 1000, 1003},
    {"HundredThousandFramesGiveStep100", 100000, 0, 1000, 1000},
    {"TenFramesGiveOneValueEach", 10, 0, 1000, 10},
    {"JustBelowTwiceTargetGivesOneValuePerFrame", 1999, 0, 1000, 1999},
    {"FewPointsStillAimFor32", 100, 0, 1, 34},
    {"TrailingPartialFrameIgnored", 3, 1, 1000, 3},
    {"OnlyAPartialFrameGivesNothing", 0, 1, 1000, 0},
};

class WaveformEnvelopeCount : public testing::TestWithParam<CountCase> {};

TEST_P(WaveformEnvelopeCount, OfSilentMono16) {
    const CountCase& c = GetParam();
    const WavData wav = layout(1, 1, 2, 16, Bytes(static_cast<std::size_t>(c.frames) * 2 + c.extraBytes));
    const std::vector<double> envelope = waveformEnvelope(wav, c.points);
    EXPECT_EQ(envelope.size(), c.expected);
    EXPECT_THAT(envelope, Each(0.0));
}

INSTANTIATE_TEST_SUITE_P(WaveformEnvelope, WaveformEnvelopeCount, testing::ValuesIn(countCases), test::NameParam{});

TEST(WaveformEnvelope, BucketsAreRunsOfStepFramesWithAShortLastOne) {
    Bytes pcm(44100 * 2);
    for (const std::size_t frame : {43u, 44u, 44087u, 44099u})
        pcm[2 * frame + 1] = 0x40;
    const std::vector<double> envelope = waveformEnvelope(layout(1, 1, 2, 16, pcm), 1000);
    ASSERT_EQ(envelope.size(), 1003u);
    std::vector<std::size_t> loud;
    for (std::size_t i = 0; i < envelope.size(); ++i)
        if (envelope[i] > 0)
            loud.push_back(i);
    EXPECT_THAT(loud, ElementsAre(0, 1, 1001, 1002));
}

struct MagnitudeCase {
    const char* name;
    std::uint16_t format, bits;
    Bytes sample;
    double expected;
};

const float nan = std::numeric_limits<float>::quiet_NaN();

const MagnitudeCase magnitudeCases[] = {
    {"Pcm16MostNegativeIsLimitedToOne", 1, 16, {0x00, 0x80}, 1.0},
    {"Pcm16Half", 1, 16, {0x00, 0x40}, half16},
    {"Pcm24MostNegativeIsLimitedToOne", 1, 24, {0x00, 0x00, 0x80}, 1.0},
    {"Pcm24MostPositive", 1, 24, {0xFF, 0xFF, 0x7F}, 1.0},
    {"Pcm24Half", 1, 24, {0x00, 0x00, 0x40}, half24},
    {"Pcm24MinusOne", 1, 24, {0xFF, 0xFF, 0xFF}, 1.0f / 8388607.0f},
    {"Pcm32MostNegative", 1, 32, {0x00, 0x00, 0x00, 0x80}, 1.0},
    {"Pcm32MostPositiveRoundsUpInSinglePrecision", 1, 32, {0xFF, 0xFF, 0xFF, 0x7F}, 1.0},
    {"Pcm32ScalesInSinglePrecision", 1, 32, {0x01, 0x00, 0x00, 0x01}, 0x1p-7},
    {"FloatNegativeQuarter", 3, 32, float32({-0.25f}), 0.25},
    {"FloatAboveOneIsLimited", 3, 32, float32({1.5f}), 1.0},
    {"FloatBelowMinusOneIsLimited", 3, 32, float32({-2.0f}), 1.0},
    {"FloatNanIsFullScale", 3, 32, float32({nan}), 1.0},
    {"Pcm8IsNotRead", 1, 8, {0x00}, 0.0},
    {"Pcm20IsNotRead", 1, 20, {0x00, 0x00, 0x80}, 0.0},
    {"Pcm64IsNotRead", 1, 64, {0, 0, 0, 0, 0, 0, 0, 0x80}, 0.0},
    {"Float64IsNotRead", 3, 64, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, 0.0},
};

class WaveformEnvelopeMagnitude : public testing::TestWithParam<MagnitudeCase> {};

TEST_P(WaveformEnvelopeMagnitude, OfOneMonoSample) {
    const MagnitudeCase& c = GetParam();
    const WavData wav = layout(c.format, 1, static_cast<std::uint16_t>(c.sample.size()), c.bits, c.sample);
    EXPECT_THAT(waveformEnvelope(wav, 1000), ElementsAre(c.expected));
}

INSTANTIATE_TEST_SUITE_P(WaveformEnvelope, WaveformEnvelopeMagnitude, testing::ValuesIn(magnitudeCases),
                         test::NameParam{});

TEST(WaveformEnvelope, TakesTheLouderChannel) {
    EXPECT_THAT(waveformEnvelope(layout(1, 2, 4, 16, test::pcm16({0, -32767})), 1000), ElementsAre(1.0));
    EXPECT_THAT(waveformEnvelope(layout(1, 2, 4, 16, test::pcm16({16384, -8192, -8192, 16384})), 1000),
                Each(half16));
    EXPECT_THAT(waveformEnvelope(layout(1, 2, 6, 24, Bytes{0, 0, 0, 0, 0, 0x40}), 1000),
                ElementsAre(half24));
    EXPECT_THAT(waveformEnvelope(layout(3, 2, 8, 32, float32({-0.5f, 0.125f})), 1000), ElementsAre(0.5));
}

TEST(WaveformEnvelope, ZeroChannelsAndUnreadWidthsGiveZerosAndNarrowWidthsNothing) {
    const Bytes loud(64, 0x7F);
    EXPECT_THAT(waveformEnvelope(layout(1, 0, 2, 16, loud), 1000), ElementsAreArray(std::vector<double>(32, 0.0)));
    EXPECT_THAT(waveformEnvelope(layout(1, 1, 1, 8, loud), 1000), ElementsAreArray(std::vector<double>(64, 0.0)));
    EXPECT_THAT(waveformEnvelope(layout(3, 1, 8, 64, loud), 1000), ElementsAreArray(std::vector<double>(8, 0.0)));
    EXPECT_THAT(waveformEnvelope(layout(1, 1, 1, 4, loud), 1000), ElementsAre());
}

// A header may claim more channel bytes than a frame holds; the last frames
// then reach past the buffer, and those samples must read as silence rather
// than be read at all. The buffer is allocated to the byte so that the
// address sanitizer sees any overrun.
struct OverrunCase {
    const char* name;
    WavData format;
    Bytes pcm;
    std::vector<double> expected;
};

const OverrunCase overrunCases[] = {
    {"Pcm16ThreeChannelsInTwoBytes", layout(1, 3, 2, 16), test::pcm16({0, 0, 0, 0, 32767}), {0, 0, 1, 1, 1}},
    {"Pcm24TwoChannelsInThreeBytes", layout(1, 2, 3, 24), {0, 0, 0, 0, 0, 0, 0, 0, 0x40}, {0, half24, half24}},
    {"Pcm32FourChannelsInFourBytes", layout(1, 4, 4, 32), {0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0, 0}, {0.5, 0, 0}},
    {"FloatTwoChannelsInFourBytes", layout(3, 2, 4, 32), float32({0.25f, 0.5f, 0.75f}), {0.5, 0.75, 0.75}},
};

class WaveformEnvelopeOverrun : public testing::TestWithParam<OverrunCase> {};

TEST_P(WaveformEnvelopeOverrun, ReadsNothingPastTheData) {
    const OverrunCase& c = GetParam();
    const auto exact = std::make_unique<std::uint8_t[]>(c.pcm.size());
    std::memcpy(exact.get(), c.pcm.data(), c.pcm.size());
    EXPECT_THAT(waveformEnvelope(c.format, std::span(exact.get(), c.pcm.size()), 1000), ElementsAreArray(c.expected));
}

INSTANTIATE_TEST_SUITE_P(WaveformEnvelope, WaveformEnvelopeOverrun, testing::ValuesIn(overrunCases),
                         test::NameParam{});

// The contiguous 16-bit fast path against the per-sample path that padded
// frames take; the padding holds full scale, so reading it would show.
TEST(WaveformEnvelope, PackedAndPadded16BitFramesAgree) {
    std::uint32_t noise = 7;
    for (const std::uint16_t channels : std::array<std::uint16_t, 3>{1, 2, 6}) {
        Bytes packed, padded;
        for (int frame = 0; frame < 10007; ++frame) {
            for (int c = 0; c < channels; ++c) {
                noise = noise * 1664525u + 1013904223u;
                // Mostly quiet, now and then a peak up to full scale of either sign.
                const int shift = noise % 7 == 0 ? 0 : 4;
                const auto sample = static_cast<std::uint16_t>(static_cast<std::int16_t>(noise >> 16) >> shift);
                putLE(packed, sample, 2);
                putLE(padded, sample, 2);
            }
            putLE(padded, 0x8000, 2);
        }
        const WavData packedLayout = layout(1, channels, static_cast<std::uint16_t>(2 * channels), 16, packed);
        const WavData paddedLayout = layout(1, channels, static_cast<std::uint16_t>(2 * channels + 2), 16, padded);
        for (const std::int64_t points : {1, 1000, 5003, 20000})
            EXPECT_EQ(waveformEnvelope(packedLayout, points), waveformEnvelope(paddedLayout, points))
                << channels << " channels, " << points << " points";
    }
}

// Every reading format of the same break draws the same picture, and the
// overload for a variation's bytes matches the one for a whole record.
TEST(WaveformEnvelope, RealLoopLooksTheSameInEveryFormat) {
    const WavData s16 = loadWav(test::testLoopPath("amen_s16.wav"));
    const std::vector<double> reference = waveformEnvelope(s16, 1000);
    ASSERT_EQ(reference.size(), 1005u);  // 77321 frames in buckets of 77
    EXPECT_GT(*std::max_element(reference.begin(), reference.end()), 0.5);
    for (const char* file : {"amen_s24.wav", "amen_s32.wav", "amen_f32.wav"}) {
        SCOPED_TRACE(file);
        const WavData wav = loadWav(test::testLoopPath(file));
        const std::vector<double> envelope = waveformEnvelope(wav, 1000);
        ASSERT_EQ(envelope.size(), reference.size());
        for (std::size_t i = 0; i < envelope.size(); ++i)
            ASSERT_NEAR(envelope[i], reference[i], 1e-4) << "bucket " << i;

        WavData formatOnly = wav;
        formatOnly.pcmData = {1, 2, 3};
        EXPECT_EQ(waveformEnvelope(formatOnly, wav.pcmData, 1000), envelope);
    }
}

} // namespace
} // namespace marquetry::audio
