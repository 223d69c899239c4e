#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "audio/WavReader.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace marquetry::audio {
namespace {

WavData layout(std::uint16_t audioFormat, std::uint16_t channels, std::uint16_t bits, std::uint32_t rate = 44100) {
    const auto blockAlign = static_cast<std::uint16_t>(channels * bits / 8);
    return {audioFormat, channels, rate, rate * blockAlign, blockAlign, bits, {}};
}

// Every byte pattern of a real loop survives the trip to float and back in
// each layout that float holds exactly.
TEST(FormatConversion, RoundTripIsLosslessUpTo24BitAndForFloat) {
    for (const char* name : {"amen_u8.wav", "amen_s16.wav", "amen_s24.wav", "amen_f32.wav", "amen_mono_s16.wav"}) {
        SCOPED_TRACE(name);
        const WavData wav = loadWav(test::testLoopPath(name));
        EXPECT_EQ(fromFloat(wav, toFloat(wav, wav.pcmData)), wav.pcmData);
    }
}

TEST(FormatConversion, LoudSamplesSaturateInsteadOfWrapping) {
    const float loud[] = {1.5f, -1.5f, 1.0f, -1.0f, NAN, 0.5f};
    const Bytes s16 = fromFloat(layout(formatPcm, 1, 16), loud);
    const std::vector<std::int16_t> expected16{32767, -32768, 32767, -32768, 0, 16384};
    ASSERT_EQ(s16.size(), expected16.size() * 2);
    for (std::size_t i = 0; i < expected16.size(); ++i)
        EXPECT_EQ(static_cast<std::int16_t>(s16[2 * i] | (s16[2 * i + 1] << 8)), expected16[i]) << i;
    EXPECT_EQ(fromFloat(layout(formatPcm, 1, 8), loud), (Bytes{255, 0, 255, 0, 128, 192}));
    const Bytes s24 = fromFloat(layout(formatPcm, 1, 24), std::span(loud, 2));
    EXPECT_EQ(s24, (Bytes{0xff, 0xff, 0x7f, 0x00, 0x00, 0x80}));
}

// Mono is copied to every channel, many channels average into one, and
// between other counts channels wrap or fold.
TEST(FormatConversion, ChannelsFollowTheMixRule) {
    const WavData mono = test::pcm16(1, {1000, -2000});
    const WavData stereo = test::pcm16(2, {1000, 3000, -2000, -4000});
    const WavData quad = test::pcm16(4, {100, 200, 300, 400});
    const auto samples = [](const WavData& wav) { return toFloat(wav, wav.pcmData); };
    const auto asInt = [&](const WavData& wav) {
        std::vector<int> values;
        for (const float x : samples(wav))
            values.push_back(static_cast<int>(std::lround(x * 32768.0f)));
        return values;
    };
    EXPECT_EQ(asInt(convertFormat(mono, layout(formatPcm, 2, 16))), (std::vector<int>{1000, 1000, -2000, -2000}));
    EXPECT_EQ(asInt(convertFormat(stereo, layout(formatPcm, 1, 16))), (std::vector<int>{2000, -3000}));
    EXPECT_EQ(asInt(convertFormat(quad, layout(formatPcm, 2, 16))), (std::vector<int>{200, 300}));
    EXPECT_EQ(asInt(convertFormat(stereo, layout(formatPcm, 3, 16))), (std::vector<int>{1000, 3000, 1000, -2000, -4000, -2000}));
}

// A 1 kHz tone resampled from 44.1 to 48 kHz keeps its pitch and level, and
// the length is the rounded ratio of frames.
TEST(FormatConversion, SampleRateChangesKeepPitchAndLevel) {
    std::vector<std::int16_t> tone(44100);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<std::int16_t>(std::lround(16000 * std::sin(2 * std::numbers::pi * 1000 * static_cast<double>(i) / 44100.0)));
    const WavData converted = convertFormat(test::pcm16(1, tone), layout(formatFloat, 1, 32, 48000));
    const std::vector<float> out = toFloat(converted, converted.pcmData);
    ASSERT_EQ(out.size(), 48000u);
    int crossings = 0;
    double energy = 0;
    for (std::size_t i = 1000; i + 1000 < out.size(); ++i) {
        crossings += (out[i - 1] < 0) != (out[i] < 0);
        energy += out[i] * out[i];
    }
    EXPECT_NEAR(crossings, 2 * 1000 * 46000 / 48000, 4);
    EXPECT_NEAR(std::sqrt(energy / 46000), 16000 / 32768.0 / std::sqrt(2.0), 0.01);
}

TEST(FormatConversion, RefusesLayoutsAndRatesItCannotConvert) {
    const WavData stereo = test::pcm16(2, {1, 2});
    EXPECT_EQ(convertFormat(stereo, stereo), stereo);
    for (const WavData& target : {layout(formatPcm, 2, 12), layout(formatFloat, 2, 64), layout(formatPcm, 0, 16),
                                  layout(formatPcm, 2, 16, 44100 * 300)}) {
        try {
            convertFormat(stereo, target);
            ADD_FAILURE() << describeFormat(target);
        } catch (const AppError& error) {
            EXPECT_EQ(std::string(error.what()),
                      "Cannot convert 16-bit stereo 44100 Hz audio to " + describeFormat(target) + ".");
        }
    }
}

} // namespace
} // namespace marquetry::audio
