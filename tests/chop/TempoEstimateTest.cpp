// Tempo estimates on real breaks and on drum patterns of known tempo.
#include "audio/WavReader.hpp"
#include "chop/TempoEstimate.hpp"

#include "support/DrumPatterns.hpp"
#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <string>
#include <utility>

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
        {"amen_full_s16.wav", {140.0, 16, 4}}, {"amen_full_mono_u8.wav", {140.0, 16, 4}},
        {"breakbeat_s16.wav", {126.0, 4, 1}},  {"breakbeat_s24_48k.wav", {126.0, 4, 1}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(estimateTempo(audio::loadWav(testLoopPath(c.file))), c.expected) << c.file;
}

// Each bar and each pair of bars of the full amen, cut on the bar lines: its
// fourth bar differs from the third, which must not read as half speed.
TEST(TempoEstimate, ReadsBarsCutFromARealBreak) {
    const audio::WavData full = audio::loadWav(testLoopPath("amen_full_s16.wav"));
    const std::size_t frames = full.pcmData.size() / full.blockAlign;
    for (const std::size_t parts : {2u, 4u})
        for (std::size_t i = 0; i < parts; ++i) {
            audio::WavData cut = full;
            cut.pcmData.assign(full.pcmData.begin() + static_cast<std::ptrdiff_t>(frames * i / parts * full.blockAlign),
                               full.pcmData.begin() + static_cast<std::ptrdiff_t>(frames * (i + 1) / parts * full.blockAlign));
            const auto estimate = estimateTempo(cut);
            ASSERT_TRUE(estimate) << i << " of " << parts;
            EXPECT_EQ(estimate->bpm, 140.0) << i << " of " << parts;
        }
}

// Every real break whose length fixes its tempo and every rendered pattern
// within 0.5 BPM, in 4/4; octave errors count as wrong.
TEST(TempoEstimate, ReadsEveryBreakAndRenderedPatternWithinHalfABeatPerMinute) {
    const auto expectRight = [](const std::string& name, const audio::WavData& wav, double bpm) {
        const auto estimate = estimateTempo(wav);
        ASSERT_TRUE(estimate) << name;
        EXPECT_NEAR(estimate->bpm, bpm, 0.5) << name;
        EXPECT_EQ(estimate->beatsPerBar, 4) << name;
    };
    for (const auto& [file, bpm] : {std::pair{"amen_s16.wav", 136.9}, {"amen_full_s16.wav", 140.0},
                                    {"breakbeat_s16.wav", 126.0}})
        expectRight(file, audio::loadWav(testLoopPath(file)), bpm);
    for (const auto& c : audio::test::patternCases())
        expectRight(describe(c), audio::test::renderPattern(c), c.bpm);
}

// Tempo within 0.5 BPM and meter right on at least 95 % of grooves as sample
// packs hold them: swung, humanised, with ghost notes, fills, a bass line or
// hiss, in 3/4 and 6/8, half-time, some with a tail or a cut end.
TEST(TempoEstimate, ReadsTempoAndMeterOfRenderedGrooves) {
    std::ptrdiff_t right = 0, all = 0;
    std::uint32_t seed = 0;
    for (const auto& groove : audio::test::grooves()) {
        const auto estimate = estimateTempo(audio::test::renderGroove(groove, ++seed));
        const bool ok = estimate && estimate->beatsPerBar == groove.beatsPerBar
                        && (std::fabs(estimate->bpm - groove.bpm) <= 0.5
                            || std::fabs(estimate->bpm - groove.otherReading) <= 0.5);
        right += ok ? 1 : 0;
        ++all;
        if (!ok)
            std::cout << "  " << describe(groove) << " read as " << (estimate ? tempoText(*estimate) : "nothing")
                      << "\n";
    }
    EXPECT_GE(right * 100, all * 95) << right << " of " << all;
}

TEST(TempoEstimate, GivesNoneForWhatCannotBeTold) {
    audio::WavData silent{audio::formatPcm, 2, 44100, 176400, 4, 16, audio::Bytes(4 * 44100 * 2, 0)};
    audio::WavData tooShort = audio::loadWav(testLoopPath("amen_s16.wav"));
    tooShort.pcmData.resize(4 * 4000);
    audio::WavData oddWidth = audio::loadWav(testLoopPath("amen_s16.wav"));
    oddWidth.bitsPerSample = 12;
    audio::WavData noRate = audio::loadWav(testLoopPath("amen_s16.wav"));
    noRate.sampleRate = 0;
    // A take longer than any loop: the amen played over and over.
    audio::WavData tooLong = audio::loadWav(testLoopPath("amen_s16.wav"));
    const audio::Bytes once = tooLong.pcmData;
    while (tooLong.pcmData.size() <= static_cast<std::size_t>(maxLoopSeconds * 176400))
        tooLong.pcmData.insert(tooLong.pcmData.end(), once.begin(), once.end());
    for (const audio::WavData& wav : {silent, tooShort, oddWidth, noRate, tooLong, audio::WavData{}})
        EXPECT_EQ(estimateTempo(wav), std::nullopt);
}

TEST(TempoEstimate, TempoAtRoundsToOneDecimalAndCountsWholeBeatsInItsMeter) {
    EXPECT_EQ(tempoAt(126.04, 84000, 44100), (TempoEstimate{126.0, 4, 1}));
    EXPECT_EQ(tempoAt(70, 302400, 44100), (TempoEstimate{70.0, 8, 2}));
    EXPECT_EQ(tempoAt(30, 100, 44100), (TempoEstimate{30.0, 1, 0.25}));
    EXPECT_EQ(tempoAt(120, 264600, 44100, 3), (TempoEstimate{120.0, 12, 4, 3}));
    EXPECT_EQ(tempoAt(0, 100, 44100), std::nullopt);
    EXPECT_EQ(tempoAt(120, 0, 44100), std::nullopt);
    EXPECT_EQ(tempoAt(120, 264600, 44100, 6), std::nullopt);
}

TEST(TempoEstimate, TextShowsTempoMeterAndBars) {
    EXPECT_EQ(tempoText({136.9, 4, 1}), "136.9 BPM \u00b7 4/4 \u00b7 1 bar");
    EXPECT_EQ(tempoText({120, 12, 4, 3}), "120.0 BPM \u00b7 3/4 \u00b7 4 bars");
    EXPECT_EQ(tempoText({70, 10, 2.5}), "70.0 BPM \u00b7 4/4 \u00b7 2.5 bars");
}

} // namespace
} // namespace marquetry::chop
