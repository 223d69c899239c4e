#include "chop/GlitchEffects.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <tuple>
#include <utility>

namespace marquetry::chop {
namespace {

using audio::formatFloat;
using audio::formatPcm;
using audio::WavData;
using audio::test::counting;
using audio::test::record;
using audio::test::samples16;

const WavData stereo16 = record(formatPcm, 2, 4, 16);
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(GlitchEffects, FourSlicesFromSeed42TakeTheirKnownDecisions) {
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

// Seed 42 at 0.55 neither reverses nor stutters the first slice and passes
// its pitch draw, which takes three more outputs, on 16-bit PCM only.
TEST(GlitchEffects, UnchangedSlicesDrawOnlyWhatTheirFormatCallsFor) {
    const std::tuple<const char*, Bytes, WavData, std::uint64_t> table[] = {
        {"empty slice", {}, stereo16, 0},
        {"no frame size", counting(16), WavData{formatPcm, 2, 0, 0, 0, 16, {}}, 0},
        {"32-bit float", counting(24), record(formatFloat, 2, 8, 32), 2},
        {"one 16-bit frame", samples16({1234, -1234}), stereo16, 5},
    };
    for (const auto& [name, slice, wav, draws] : table) {
        SeededGenerator rng(42);
        EXPECT_EQ(applyGlitchEffects(slice, wav, 0.55, rng), slice) << name;
        EXPECT_EQ(rng.state(), 42 + draws * SeededGenerator::goldenGamma) << name;
    }
}

TEST(GlitchEffects, StutterRepeatsFollowTheClampedAmount) {
    // 43 float frames: a 40-byte head, and no repeat count returns the input's
    // length, so the result's length tells the repeats even after a reverse.
    const WavData monoFloat = record(formatFloat, 1, 4, 32);
    const Bytes floats = counting(4 * 43);
    const std::pair<double, std::set<std::size_t>> repeatTable[] = {
        {-2.0, {2}}, {0.125, {2, 3}}, {0.55, {2, 3, 4}}, {nan, {2, 3, 4, 5, 6}}};
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
    EXPECT_EQ(stutterSliceByFrames(counting(19), 4, 6), (Bytes{1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4,
                                                               1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4}));
    // Less than a frame, fewer than four frames, fewer than two repeats, or no frame size: unchanged.
    EXPECT_EQ(reverseSliceByFrames(counting(3), 4), counting(3));
    EXPECT_EQ(reverseSliceByFrames(counting(5), 0), counting(5));
    for (const auto& [size, frameSize, repeats] :
         {std::tuple<std::size_t, std::int64_t, std::int64_t>{12, 4, 3}, {40, 4, 1}, {40, 0, 3}})
        EXPECT_EQ(stutterSliceByFrames(counting(size), frameSize, repeats), counting(size)) << size << "/" << repeats;
}

TEST(GlitchEffects, PitchShiftResamplesByLinearInterpolation) {
    const Bytes ramp = samples16({0, 1000, 2000, 3000});
    const std::tuple<const char*, Bytes, std::int64_t, double, Bytes> table[] = {
        {"octave up", ramp, 1, 12.0, samples16({0, 2000})},
        {"octave down", ramp, 1, -12.0, samples16({0, 500, 1000, 1500, 2000, 2500, 3000, 3000})},
        {"-0.5 rounds away", samples16({0, -1}), 1, -12.0, samples16({0, -1, -1, -1})},
        {"full scale", samples16({-32768, 32767}), 1, -12.0, samples16({-32768, -1, 32767, 32767})},
        {"stereo", samples16({0, 100, 1000, -100}), 2, -12.0, samples16({0, 100, 500, 0, 1000, -100, 1000, -100})},
        {"far up keeps a frame", ramp, 1, 120.0, samples16({0})},
        {"one frame", samples16({5, 6}), 2, -12.0, samples16({5, 6})},
        {"no channels", ramp, 0, 12.0, ramp},
        {"NaN", ramp, 1, nan, ramp},
    };
    for (const auto& [name, input, channels, semitones, expected] : table)
        EXPECT_EQ(pitchShiftPCM16Interleaved(input, channels, semitones), expected) << name;
}

} // namespace
} // namespace marquetry::chop
