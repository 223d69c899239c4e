#include "chop/GlitchEffects.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <set>
#include <tuple>
#include <utility>

namespace marquetry::chop {
namespace {

using audio::formatFloat;
using audio::formatPcm;
using audio::WavData;

WavData format(std::uint16_t code, std::uint16_t channels, std::uint16_t bits) {
    return {code, channels, 0, 0, static_cast<std::uint16_t>(channels * bits / 8), bits, {}};
}

Bytes pcm16(std::initializer_list<int> samples) {
    Bytes out;
    for (const int s : samples)
        out.insert(out.end(), {static_cast<std::uint8_t>(s & 0xFF), static_cast<std::uint8_t>((s >> 8) & 0xFF)});
    return out;
}

Bytes counting(std::size_t size) {
    Bytes out(size);
    std::iota(out.begin(), out.end(), std::uint8_t{1});
    return out;
}

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

TEST(GlitchEffects, FourSlicesFromSeed42TakeTheirKnownDecisions) {
    const WavData stereo16 = format(formatPcm, 2, 16);
    const Bytes slice = counting(4 * 37 + 3); // ends in a partial frame
    const Bytes reversedStuttered = stutterSliceByFrames(reverseSliceByFrames(slice, 4), 4, 4);
    SeededGenerator rng(42);
    EXPECT_EQ(applyGlitchEffects(slice, stereo16, 0.55, rng),
              pitchShiftPCM16Interleaved(slice, 2, -3.3380156163409747));
    EXPECT_EQ(applyGlitchEffects(slice, stereo16, 0.55, rng),
              pitchShiftPCM16Interleaved(reversedStuttered, 2, 2.0535320478868715));
    EXPECT_EQ(applyGlitchEffects(slice, stereo16, 0.55, rng), slice);
    EXPECT_EQ(applyGlitchEffects(slice, stereo16, 0.55, rng),
              pitchShiftPCM16Interleaved(slice, 2, -0.391355022019648));
}

TEST(GlitchEffects, UnchangedSlicesDrawOnlyWhatTheirFormatCallsFor) {
    // Seed 42 at 0.55 neither reverses nor stutters the first slice and passes its pitch draw.
    SeededGenerator afterTwo(42);
    afterTwo.randomDouble(0, 1);
    afterTwo.randomDouble(0, 1);
    SeededGenerator afterPitch = afterTwo;
    afterPitch.randomDouble(0, 1);
    afterPitch.randomDoubleClosed(-9.6, 9.6);
    afterPitch.randomDoubleClosed(-0.375, 0.375);
    WavData noFrameSize = format(formatPcm, 2, 16);
    noFrameSize.blockAlign = 0;
    struct Row {
        const char* name;
        Bytes slice;
        WavData wav;
        SeededGenerator after;
    };
    const Row table[] = {
        {"empty slice", {}, format(formatPcm, 2, 16), SeededGenerator(42)},
        {"no frame size", counting(16), noFrameSize, SeededGenerator(42)},
        {"24-bit", counting(24), format(formatPcm, 1, 24), afterTwo},
        {"32-bit float", counting(24), format(formatFloat, 2, 32), afterTwo},
        {"one 16-bit frame", pcm16({1234, -1234}), format(formatPcm, 2, 16), afterPitch},
    };
    for (const Row& row : table) {
        SeededGenerator rng(42);
        EXPECT_EQ(applyGlitchEffects(row.slice, row.wav, 0.55, rng), row.slice) << row.name;
        EXPECT_EQ(rng, row.after) << row.name;
    }
}

TEST(GlitchEffects, StutterRepeatsFollowTheClampedAmount) {
    // 43 float frames: a 40-byte head, and no repeat count returns the input's
    // length, so the result's length tells the repeats even after a reverse.
    const WavData monoFloat = format(formatFloat, 1, 32);
    const Bytes floats = counting(4 * 43);
    const std::pair<double, std::set<std::size_t>> repeatTable[] = {
        {-2.0, {2}}, {0.0, {2}}, {0.125, {2, 3}}, {0.55, {2, 3, 4}},
        {1.0, {2, 3, 4, 5, 6}}, {inf, {2, 3, 4, 5, 6}}, {nan, {2, 3, 4, 5, 6}},
    };
    for (const auto& [amount, expected] : repeatTable) {
        SeededGenerator rng(2024);
        std::set<std::size_t> seen;
        for (int i = 0; i < 1500; ++i)
            if (const Bytes out = applyGlitchEffects(floats, monoFloat, amount, rng); out.size() != floats.size())
                seen.insert(out.size() / 40);
        EXPECT_EQ(seen, expected) << "amount " << amount;
    }
}

TEST(GlitchEffects, ReverseAndStutterWorkOnWholeFrames) {
    EXPECT_EQ(reverseSliceByFrames(counting(14), 4), (Bytes{9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}));
    EXPECT_EQ(stutterSliceByFrames(counting(40), 4, 3),
              (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(stutterSliceByFrames(counting(28), 4, 3), (Bytes{1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4}));
    EXPECT_EQ(stutterSliceByFrames(counting(19), 4, 6).size(), 24u);

    // Too short, a single frame, or no usable frame size: nothing to reverse.
    for (const auto& [size, frameSize] : {std::pair<std::size_t, std::int64_t>{3, 4}, {4, 4}, {5, 0}, {5, -2}})
        EXPECT_EQ(reverseSliceByFrames(counting(size), frameSize), counting(size)) << size << "/" << frameSize;
    // Fewer than four frames, fewer than two repeats, or no usable frame size.
    for (const auto& [size, frameSize, repeats] : {std::tuple<std::size_t, std::int64_t, std::int64_t>{12, 4, 3},
                                                   {40, 4, 1}, {40, 0, 3}, {40, -4, 3}})
        EXPECT_EQ(stutterSliceByFrames(counting(size), frameSize, repeats), counting(size)) << size << "/" << repeats;
}

TEST(GlitchEffects, PitchShiftResamplesByLinearInterpolation) {
    const Bytes ramp = pcm16({0, 1000, 2000, 3000});
    Bytes rampAndAByte = ramp;
    rampAndAByte.push_back(0x7F);
    const std::tuple<const char*, Bytes, std::int64_t, double, Bytes> table[] = {
        {"octave up", ramp, 1, 12.0, pcm16({0, 2000})},
        {"octave down", ramp, 1, -12.0, pcm16({0, 500, 1000, 1500, 2000, 2500, 3000, 3000})},
        {"partial frame", rampAndAByte, 1, 12.0, pcm16({0, 2000})},
        {"-0.5 rounds away", pcm16({0, -1}), 1, -12.0, pcm16({0, -1, -1, -1})},
        {"0.5 rounds away", pcm16({0, 1}), 1, -12.0, pcm16({0, 1, 1, 1})},
        {"full scale", pcm16({-32768, 32767}), 1, -12.0, pcm16({-32768, -1, 32767, 32767})},
        {"stereo", pcm16({0, 100, 1000, -100}), 2, -12.0, pcm16({0, 100, 500, 0, 1000, -100, 1000, -100})},
        {"far up keeps a frame", ramp, 1, 120.0, pcm16({0})},
        {"one frame", pcm16({5, 6}), 2, -12.0, pcm16({5, 6})},
        {"no channels", ramp, 0, 12.0, ramp},
        {"huge channel count", ramp, std::numeric_limits<std::int64_t>::max(), 12.0, ramp},
        {"NaN", ramp, 1, nan, ramp},
        {"zero ratio", ramp, 1, -inf, ramp},
    };
    for (const auto& [name, input, channels, semitones, expected] : table)
        EXPECT_EQ(pitchShiftPCM16Interleaved(input, channels, semitones), expected) << name;
}

} // namespace
} // namespace marquetry::chop
