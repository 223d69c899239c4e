// Tempo estimates on real breaks and on drum patterns of known tempo.
#include "audio/WavReader.hpp"
#include "chop/TempoEstimate.hpp"

#include "support/DrumPatterns.hpp"
#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>

namespace marquetry::chop {
namespace {

using audio::test::testLoopPath;

TEST(TempoEstimate, ReadsRealBreaksInEveryLayout) {
    const struct {
        const char* file;
        TempoEstimate expected;
    } cases[] = {
        {"amen_s16.wav", {136.9, 4, 1}},      {"amen_s24.wav", {136.9, 4, 1}},
        {"amen_s32.wav", {136.9, 4, 1}},      {"amen_f32.wav", {136.9, 4, 1}},
        {"amen_u8.wav", {136.9, 4, 1}},       {"amen_mono_s16.wav", {136.9, 4, 1}},
        {"amen_full_s16.wav", {140.0, 16, 4}}, {"breakbeat_s16.wav", {126.0, 4, 1}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(estimateTempo(audio::loadWav(testLoopPath(c.file))), c.expected) << c.file;
}

// Octave errors count as wrong. Slow broken beats, whose kicks fall between
// the beats, still read twice as fast (3 of 39): the floor keeps what works.
TEST(TempoEstimate, ReadsRenderedPatternsWithinHalfABeatPerMinute) {
    const auto cases = audio::test::patternCases();
    std::ptrdiff_t right = 0;
    for (const auto& c : cases) {
        const auto estimate = estimateTempo(audio::test::renderPattern(c));
        const bool ok = estimate && std::fabs(estimate->bpm - c.bpm) <= 0.5 && estimate->beats == 4 * c.bars;
        right += ok ? 1 : 0;
        if (!ok)
            std::cout << "  " << describe(c) << " read as " << (estimate ? estimate->bpm : 0.0) << "\n";
    }
    EXPECT_GE(right, 36) << "of " << cases.size();
}

TEST(TempoEstimate, GivesNoneForWhatCannotBeTold) {
    audio::WavData silent{audio::formatPcm, 2, 44100, 176400, 4, 16, audio::Bytes(4 * 44100 * 2, 0)};
    audio::WavData tooShort = audio::loadWav(testLoopPath("amen_s16.wav"));
    tooShort.pcmData.resize(4 * 4000);
    audio::WavData oddWidth = audio::loadWav(testLoopPath("amen_s16.wav"));
    oddWidth.bitsPerSample = 12;
    audio::WavData noRate = audio::loadWav(testLoopPath("amen_s16.wav"));
    noRate.sampleRate = 0;
    for (const audio::WavData& wav : {silent, tooShort, oddWidth, noRate, audio::WavData{}})
        EXPECT_EQ(estimateTempo(wav), std::nullopt);
}

TEST(TempoEstimate, TempoAtRoundsToOneDecimalAndCountsWholeBeats) {
    EXPECT_EQ(tempoAt(126.04, 84000, 44100), (TempoEstimate{126.0, 4, 1}));
    EXPECT_EQ(tempoAt(70, 302400, 44100), (TempoEstimate{70.0, 8, 2}));
    EXPECT_EQ(tempoAt(30, 100, 44100), (TempoEstimate{30.0, 1, 0.25}));
    EXPECT_EQ(tempoAt(0, 100, 44100), std::nullopt);
    EXPECT_EQ(tempoAt(120, 0, 44100), std::nullopt);
}

} // namespace
} // namespace marquetry::chop
