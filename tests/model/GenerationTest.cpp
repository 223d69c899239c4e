// Generate: the checks on the main thread, the busy flag, the run on real
// drum breaks, its summary and names, and both hand-backs.
#include "Fakes.hpp"

#include "audio/FormatConversion.hpp"
#include "audio/WavWriter.hpp"
#include "chop/TempoEstimate.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

using AppModelGeneration = ModelTest;

TEST_F(AppModelGeneration, OneRunAtATimeWithTheBusyFlagUpUntilTheHandBack) {
    addLoop("a.wav");
    AppModel& m = start();
    m.generate();
    EXPECT_EQ(m.status(), "Generating previews...");
    tasks.runBackground();
    m.generate();
    EXPECT_TRUE(tasks.background.empty()) << "still busy until the main thread has the result";
    EXPECT_TRUE(m.isGenerating() && m.generatedLoops().empty());

    changes.clear();
    tasks.runMain();
    EXPECT_THAT(changes, ElementsAre(Field::lastRun, Field::sourceWavData, Field::generatedLoops, Field::status,
                                     Field::isGenerating));
    EXPECT_EQ(m.status(), "Generated 10 preview loop(s) from 1 source file using Grid chop model.");
    ASSERT_EQ(m.generatedLoops().size(), 10u);
    EXPECT_TRUE(m.generatedLoops()[9].isSelected && !m.generatedLoops()[9].waveform.empty());
}

TEST_F(AppModelGeneration, RefusedRequestsOnlyReportAndLeaveThePreviewPlaying) {
    addLoop("a.wav");
    AppModel& m = start();
    m.toggleSourcePlayback();
    for (const auto& [slices, versions] : {std::pair(3, 10), std::pair(16, 0)}) {
        m.changeSettings([&](model::RunSettings& s) { s.plan.sliceCount = slices; });
        m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = versions; });
        changes.clear();
        m.generate();
        EXPECT_THAT(changes, ElementsAre(Field::status));
        EXPECT_EQ(m.status(), "Slices must be >= 4 and versions >= 1.");
    }
    EXPECT_EQ(players.live(), 1);
    m.selectFile(std::nullopt);
    m.generate();
    EXPECT_EQ(m.status(), "Select a source loop first.");
    EXPECT_TRUE(tasks.background.empty());
}

// Numbers have two digits at least; a name with nothing left becomes "source".
TEST(VariationName, KeepsOnlyAsciiLettersDigitsUnderscoreAndHyphen) {
    using chop::ChopModel;
    const std::tuple<const char*, ChopModel, std::int64_t, const char*> cases[] = {
        {"Amen Break (170).wav", ChopModel::pivot, 3, "AmenBreak170_mqtry_pivot03.wav"},
        {"\xC3\xA9t\xC3\xA9 (\xC3\xBC).wav", ChopModel::grid, 1, "t_mqtry_grid01.wav"},
        {"\xC3\xA9\xC3\xA8.wav", ChopModel::grid, 101, "source_mqtry_grid101.wav"},
        {".wav", ChopModel::dice, 12, "source_mqtry_dice12.wav"},
        {"take.2.final.WAV", ChopModel::drift, 100, "take2final_mqtry_drift100.wav"},
        {"a-b_c", ChopModel::momentum, 7, "a-b_c_mqtry_momentum07.wav"},
    };
    for (const auto& [file, chopModel, number, name] : cases)
        EXPECT_EQ(variationName(file, chopModel, number), name) << file;
}

// The bytes a seed gives are the engine's to keep; the model adds fresh ids
// for every run and takes a blank seed from the clock.
TEST_F(AppModelGeneration, EveryRunHasFreshIdsAndABlankSeedIsTheClocksSecond) {
    addLoop("a.wav");
    AppModel& m = start();
    std::vector<std::vector<GeneratedLoop>> runs;
    for (const std::string& seed : {std::string(), std::to_string(now), std::string("42")}) {
        m.changeSettings([&](model::RunSettings& s) { s.seedText = seed; });
        generate();
        runs.push_back(m.generatedLoops());
    }
    EXPECT_NE(runs[2][0].pcmData, runs[0][0].pcmData) << "the seed text is used";
    for (std::size_t i = 0; i < runs[1].size(); ++i)
        EXPECT_NE(std::exchange(runs[1][i].id, runs[0][i].id), runs[0][i].id);
    EXPECT_EQ(runs[1], runs[0]);
}

// By whole path, case-sensitively and after canonical composition: "C.wav"
// before "b.wav", and "f.wav" before an "é.wav" whose name is stored
// decomposed, which byte by byte would come first.
TEST_F(AppModelGeneration, MashupPoolsTheCheckedFilesInCaseSensitiveNormalizedPathOrder) {
    const std::string main = addLoop("Main.wav");
    const std::vector<std::string> checked = {addLoop("b.wav", "breakbeat_s16.wav"), addLoop("e\xCC\x81.wav"),
                                              addLoop("C.wav", "amen_mono_s16.wav"), addLoop("f.wav")};
    AppModel& m = start();
    m.selectFile(main);
    const std::vector<double> mainWaveform = m.sourceWaveform();
    const std::tuple<bool, bool, std::vector<std::string>, const char*> cases[] = {
        {true, true, {checked[2], checked[0], checked[3], checked[1]}, "from 4 source files"},
        {true, false, {main}, "from 1 source files"},
        {false, true, {main}, "from 1 source file"},
    };
    for (const auto& [mashup, check, pooled, from] : cases) {
        m.setMashupMode(mashup);
        for (const std::string& path : checked)
            m.toggleMashupMembership(path, check);
        generate();
        EXPECT_EQ(m.status(), std::string("Generated 10 preview loop(s) ") + from + " using Grid chop model.");
        std::vector<std::string> sources;
        for (const SourceRecord& source : m.lastRun()->sources)
            sources.push_back(source.path);
        EXPECT_EQ(sources, pooled);
        EXPECT_EQ(m.sourceWavData(), audio::loadWav(pooled[0])) << from;
        EXPECT_EQ(m.sourceWaveform(), mainWaveform);
        EXPECT_EQ(m.selectedFile(), main);
        EXPECT_THAT(m.generatedLoops().at(0).name, StartsWith("Main_mqtry_grid"));
    }
}

TEST_F(AppModelGeneration, AFailedRunKeepsTheVariationsAndSourceItReplacedNothingOf) {
    const std::string a = addLoop("a.wav");
    const std::string bad = addFile("bad.wav", audio::Bytes(64, 'x'));
    AppModel& m = start();
    const audio::WavData amen = audio::loadWav(a);
    audio::Bytes tenFrames(amen.pcmData.begin(), amen.pcmData.begin() + 10 * amen.blockAlign);

    // Each case breaks a run that has just succeeded.
    const std::tuple<chop::ChopModel, std::function<void()>, std::string> cases[] = {
        {chop::ChopModel::grid, [&] { addFile("a.wav", audio::buildWavFileData(amen, tenFrames)); },
         "Error: Input loop too short for 16 slices."},
        {chop::ChopModel::dice, [&] { addFile("a.wav", audio::buildWavFileData(amen, {})); },
         "Error: Could not create slices from selected source audio."},
        {chop::ChopModel::grid,
         [&] { m.setMashupMode(true); m.toggleMashupMembership(a, true); m.toggleMashupMembership(bad, true); },
         "Error: Invalid WAV header."},
        {chop::ChopModel::grid, [&] { fs::remove(a); }, "Error: " + a + ": No such file or directory"},
    };
    for (const auto& [chopModel, breakRun, status] : cases) {
        addLoop("a.wav");
        m.setMashupMode(false);
        m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chopModel; });
        m.selectFile(a);
        generate();
        const auto before = m.generatedLoops();
        ASSERT_EQ(before.size(), 10u) << status;
        breakRun();
        generate();
        EXPECT_EQ(m.status(), status);
        EXPECT_EQ(std::tuple(m.generatedLoops(), m.sourceWavData()), std::tuple(before, amen)) << status;
        EXPECT_FALSE(m.isGenerating());
    }
    // The reader's words do not say which loop of the mashup they are about;
    // the warning does, and outlasts the failures of single loops after it.
    EXPECT_EQ(m.warning(), "The mashup stopped at bad.wav: Invalid WAV header. Untick it in the source list to go on "
                           "without it.");
}

// Planned exactly before anything is rendered: a run whose output cannot fit
// is refused with its size, and the machine is never asked for it.
TEST_F(AppModelGeneration, ARunThatCannotFitInMemoryIsRefusedWithItsSize) {
    addLoop("a.wav");
    AppModel& m = start();
    generate();
    const auto before = m.generatedLoops();
    m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = 200'000; }); // 61.9 GB of output and 1.6 GB of envelopes
    generate();
    EXPECT_THAT(m.status(), ::testing::MatchesRegex("Error: This run needs 63\\.5 GB of memory, but only .* is "
                                                    "available\\. Lower Variations or Slices, or use a shorter loop\\."));
    EXPECT_EQ(m.generatedLoops(), before);
}

TEST_F(AppModelGeneration, AHandBackAfterTheModelIsGoneDoesNothing) {
    addLoop("a.wav");
    start().generate();
    tasks.runBackground();
    model.reset();
    EXPECT_TRUE(tasks.runMain());

    start().generate();
    model.reset();
    tasks.drain();
}

// Loops of three layouts and two rates pooled in one mashup: matched, every
// variation is a file our own reader accepts, as loud as its sources within
// 3 dB and no more often at full scale; pooled raw, the 8-bit loop reads as
// near-full-scale noise, which is what the warning says.
TEST_F(AppModelGeneration, MatchedFormatsMashupSoundsLikeItsSources) {
    const std::vector<std::string> loops = {addLoop("1.wav", "amen_s16.wav"), addLoop("2.wav", "breakbeat_s24_48k.wav"),
                                            addLoop("3.wav", "amen_full_mono_u8.wav")};
    struct Level {
        double sumOfSquares = 0, fullScale = 0, samples = 0;
        void add(const audio::WavData& wav) {
            for (const float x : audio::toFloat(wav, wav.pcmData)) {
                sumOfSquares += x * x;
                fullScale += std::fabs(x) >= 0.999f;
                samples += 1;
            }
        }
        double rmsDb() const { return 10 * std::log10(sumOfSquares / samples); }
        double fullScaleShare() const { return fullScale / samples; }
    };
    Level sources;
    for (const std::string& path : loops)
        sources.add(audio::loadWav(path));

    AppModel& m = start();
    m.selectFile(loops[0]);
    m.setMashupMode(true);
    for (const std::string& path : loops)
        m.toggleMashupMembership(path, true);
    for (const bool match : {true, false}) {
        SCOPED_TRACE(match ? "matched" : "raw");
        m.changeSettings([&](model::RunSettings& s) { s.matchFormats = match; });
        generate();
        ASSERT_EQ(m.generatedLoops().size(), 10u);
        EXPECT_EQ(formatMismatchWarning(*m.lastRun()).has_value(), !match);
        Level variations;
        for (const GeneratedLoop& loop : m.generatedLoops()) {
            audio::WavData wav = *m.sourceWavData();
            wav.pcmData = loop.pcmData;
            // Raw pooling can end a variation inside a frame, which the
            // reader rightly refuses; matched variations must load.
            variations.add(match ? audio::parseWav(audio::buildWavFileData(wav, wav.pcmData)) : wav);
        }
        if (match) {
            EXPECT_NEAR(variations.rmsDb(), sources.rmsDb(), 3.0);
            EXPECT_LE(variations.fullScaleShare(), sources.fullScaleShare());
        } else {
            EXPECT_GT(variations.rmsDb(), sources.rmsDb() + 3.0);
        }
    }
}

// Matched tempo stretches every other loop of a mashup by its tempo over the
// reference's before slicing, the user's tempo winning over the estimate; a
// loop whose tempo cannot be told stops the run and says what to do.
TEST_F(AppModelGeneration, MatchedTempoStretchesTheOtherLoopsToTheReferenceTempo) {
    const std::string amen = addLoop("1.wav", "amen_s16.wav");
    const std::string breakbeat = addLoop("2.wav", "breakbeat_s16.wav");
    AppModel& m = start();
    m.selectFile(amen);
    m.setMashupMode(true);
    m.toggleMashupMembership(amen, true);
    m.toggleMashupMembership(breakbeat, true);
    m.changeSettings([&](model::RunSettings& s) { s.matchTempo = true; });
    const auto pooledFrames = [&](std::int64_t source) {
        audio::FrameCount frames = 0;
        for (const chop::PoolSlice& slice : m.lastRun()->pool)
            frames += slice.source == source ? slice.frames : 0;
        return frames;
    };
    const auto framesOf = [](const std::string& path) {
        const audio::WavData wav = audio::loadWav(path);
        return static_cast<double>(audio::frameCount(wav.pcmData.size(), wav.blockAlign));
    };
    const double amenBpm = chop::estimateTempo(audio::loadWav(amen))->bpm;
    for (const double breakbeatBpm : {126.0, 100.0}) {
        if (breakbeatBpm != 126.0)
            m.setTempoOverride(breakbeat, breakbeatBpm);
        generate();
        ASSERT_EQ(m.generatedLoops().size(), 10u) << m.status();
        EXPECT_EQ(pooledFrames(0), framesOf(amen));
        EXPECT_NEAR(static_cast<double>(pooledFrames(1)), framesOf(breakbeat) * breakbeatBpm / amenBpm, 16.0);
    }
    EXPECT_EQ(m.lastRun()->settings.tempoOverrides, (std::map<std::string, double>{{breakbeat, 100.0}}));

    const std::string silence = addLoop("3.wav");
    const audio::WavData silent = audio::test::record(audio::formatPcm, 2, 4, 16, audio::Bytes(44100 * 4, 0));
    audio::test::writeFile(silence, audio::buildWavFileData(silent, silent.pcmData));
    m.refreshFiles();
    m.toggleMashupMembership(silence, true);
    generate();
    EXPECT_EQ(m.status(), "Error: Cannot match the tempo of 3.wav: its tempo cannot be told. Type its tempo beside "
                          "the waveform, or turn off Match tempo.");
}

} // namespace
} // namespace marquetry::model::test

namespace marquetry::model::test {
namespace {

// The window reads the progress while the worker renders; the hand-back
// still publishes the run as before.
TEST_F(AppModelGeneration, ProgressIsReadUpToTheTotalBeforeTheHandBack) {
    addLoop("a.wav");
    AppModel& m = start();
    m.generate();
    EXPECT_EQ(m.generationProgress(), (AppModel::GenerationProgress{0, 10}));
    m.readGenerationProgress();
    EXPECT_EQ(m.status(), "Generating previews...") << "nothing rendered yet";
    tasks.runBackground();
    changes.clear();
    m.readGenerationProgress();
    EXPECT_THAT(changes, ElementsAre(Field::generationProgress, Field::status));
    EXPECT_EQ(m.generationProgress(), (AppModel::GenerationProgress{10, 10}));
    EXPECT_EQ(m.status(), "Generating 10 of 10...");
    tasks.runMain();
    EXPECT_EQ(m.status(), "Generated 10 preview loop(s) from 1 source file using Grid chop model.");
}

// A long run on its own thread, cancelled once it has rendered something:
// the model is idle at once with what it showed before, the worker stops
// soon after and hands back nothing. The bound only guards against a hang;
// the whole run takes minutes.
TEST_F(AppModelGeneration, ACancelledRunStopsSoonAndPublishesNothing) {
    const std::string loop = addLoop("a.wav", "amen_10s_s16.wav");
    AppModel& m = start();
    m.changeSettings([](model::RunSettings& s) { s.plan.variationCount = 2; });
    generate();
    const std::vector<GeneratedLoop> before = m.generatedLoops();
    const std::optional<RunRecord> lastRun = m.lastRun();
    ASSERT_EQ(before.size(), 2u);

    m.changeSettings([](model::RunSettings& s) {
        s.plan.variationCount = 100;
        s.plan.chopModel = chop::ChopModel::dice;
        s.plan.fit = chop::FitMode::stretch;
    });
    m.generate();
    ASSERT_EQ(tasks.background.size(), 1u);
    std::thread worker(std::move(tasks.background.front()));
    tasks.background.clear();
    for (int i = 0; i < 6000 && m.generationProgress().done == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        m.readGenerationProgress();
    }
    EXPECT_GT(m.generationProgress().done, 0);
    EXPECT_EQ(m.status(), "Generating " + std::to_string(m.generationProgress().done) + " of 100...");

    m.cancelGeneration();
    const auto cancelled = std::chrono::steady_clock::now();
    EXPECT_FALSE(m.isGenerating());
    EXPECT_EQ(m.status(), "Generation cancelled.");
    worker.join();
    EXPECT_LT(std::chrono::steady_clock::now() - cancelled, std::chrono::seconds(2));
    EXPECT_TRUE(tasks.main.empty());
    EXPECT_EQ(std::tuple(m.generatedLoops(), m.lastRun(), m.runHistory().size()),
              std::tuple(before, lastRun, std::size_t{1}));
    m.cancelGeneration();
    EXPECT_EQ(m.status(), "Generation cancelled.") << "nothing to cancel";
}

} // namespace
} // namespace marquetry::model::test
