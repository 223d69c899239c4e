// Generate: the checks on the main thread, the busy flag, the run on real
// drum breaks, its summary and names, and both hand-backs.
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using AppModelGeneration = ModelTest;

TEST_F(AppModelGeneration, OneRunAtATimeWithTheBusyFlagUpUntilTheHandBack) {
    addLoop("a.wav");
    AppModel& m = start();
    changes.clear();
    m.generate();
    EXPECT_THAT(changes,
                ElementsAre(Field::isGenerating, Field::playingTarget, Field::playbackProgress, Field::status));
    EXPECT_EQ(m.status(), "Generating previews...");
    m.generate();
    EXPECT_EQ(tasks.background.size(), 1u);
    tasks.runBackground();
    m.generate();
    EXPECT_TRUE(tasks.background.empty()) << "still busy until the main thread has the result";
    EXPECT_TRUE(m.isGenerating() && m.generatedLoops().empty());

    changes.clear();
    tasks.runMain();
    EXPECT_THAT(changes, ElementsAre(Field::sourceWavData, Field::generatedLoops, Field::status, Field::isGenerating));
    EXPECT_FALSE(m.isGenerating());
    EXPECT_EQ(m.status(), "Generated 10 preview loop(s) from 1 source file using Grid chop model.");
    ASSERT_EQ(m.generatedLoops().size(), 10u);
    for (const GeneratedLoop& loop : m.generatedLoops())
        EXPECT_TRUE(loop.isSelected && !loop.pcmData.empty() && !loop.waveform.empty());
}

TEST_F(AppModelGeneration, RefusedRequestsOnlyReportAndLeaveThePreviewPlaying) {
    addLoop("a.wav");
    AppModel& m = start();
    m.toggleSourcePlayback();
    for (const auto& [slices, versions] : {std::pair(3, 10), std::pair(16, 0), std::pair(-1, -1)}) {
        m.setSlices(slices);
        m.setVersions(versions);
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

TEST_F(AppModelGeneration, SummaryAndNamesCarryEveryModelsLabelAndTag) {
    addLoop("Amen Break (170).wav");
    AppModel& m = start();
    m.setVersions(2);
    const struct {
        chop::ChopModel model;
        const char* label;
        const char* tag;
    } models[] = {{chop::ChopModel::grid, "Grid", "grid"}, {chop::ChopModel::transient, "Transient", "transient"},
                  {chop::ChopModel::dice, "Dice", "dice"}, {chop::ChopModel::swarm, "Swarm", "swarm"},
                  {chop::ChopModel::glitch, "Glitch", "glitch"}, {chop::ChopModel::pivot, "Pivot", "pivot"},
                  {chop::ChopModel::interlock, "Interlock", "interlock"}, {chop::ChopModel::drift, "Drift", "drift"},
                  {chop::ChopModel::momentum, "Momentum", "momentum"}};
    for (const auto& [chopModel, label, tag] : models) {
        m.setChopModel(chopModel);
        generate();
        EXPECT_EQ(m.status(),
                  std::string("Generated 2 preview loop(s) from 1 source file using ") + label + " chop model.");
        ASSERT_EQ(m.generatedLoops().size(), 2u) << label;
        EXPECT_EQ(m.generatedLoops()[1].name, std::string("AmenBreak170_mqtry_") + tag + "02.wav");
    }
}

TEST_F(AppModelGeneration, NamesKeepOnlyAsciiLettersDigitsUnderscoreAndHyphen) {
    using chop::ChopModel;
    const std::tuple<const char*, ChopModel, std::int64_t, const char*> cases[] = {
        {"Amen Break (170).wav", ChopModel::pivot, 3, "AmenBreak170_mqtry_pivot03.wav"},
        {"\xC3\xA9t\xC3\xA9 (\xC3\xBC).wav", ChopModel::grid, 1, "t_mqtry_grid01.wav"},
        {".wav", ChopModel::dice, 12, "source_mqtry_dice12.wav"},
        {"take.2.final.WAV", ChopModel::drift, 100, "take2final_mqtry_drift100.wav"},
        {"a-b_c", ChopModel::momentum, 7, "a-b_c_mqtry_momentum07.wav"},
    };
    for (const auto& [file, chopModel, number, name] : cases)
        EXPECT_EQ(variationName(file, chopModel, number), name) << file;
}

TEST_F(AppModelGeneration, NumbersGrowPastTwoDigitsAndAnUnnamableFileBecomesSource) {
    addLoop("\xC3\xA9\xC3\xA8.wav");
    AppModel& m = start();
    m.setVersions(101);
    generate();
    ASSERT_EQ(m.generatedLoops().size(), 101u);
    for (const int k : {1, 99, 100, 101})
        EXPECT_EQ(m.generatedLoops()[k - 1u].name, "source_mqtry_grid" + std::string(k < 10 ? "0" : "") +
                                                       std::to_string(k) + ".wav");
}

TEST_F(AppModelGeneration, TheSameSeedGivesTheSameVariationsUnderFreshIds) {
    addLoop("a.wav");
    AppModel& m = start();
    m.setChopModel(chop::ChopModel::glitch);
    const auto run = [&](const std::string& seed) {
        m.setSeedText(seed);
        generate();
        return m.generatedLoops();
    };
    const auto first = run("42");
    const auto second = run("42");
    const auto clock = run("");
    const auto typedClock = run(std::to_string(now));
    ASSERT_EQ(first.size(), 10u);
    for (std::size_t i = 0; i < first.size(); ++i) {
        EXPECT_EQ(first[i].pcmData, second[i].pcmData);
        EXPECT_EQ(first[i].waveform, second[i].waveform);
        EXPECT_EQ(first[i].name, second[i].name);
        EXPECT_NE(first[i].id, second[i].id);
        EXPECT_EQ(clock[i].pcmData, typedClock[i].pcmData) << "a blank seed takes the clock's second";
    }
    EXPECT_NE(first[0].pcmData, clock[0].pcmData);
}

TEST_F(AppModelGeneration, MashupPoolsTheCheckedFilesInCaseSensitivePathOrder) {
    const std::string main = addLoop("Main.wav");
    const std::vector<std::string> checked = {addLoop("a.wav", "breakbeat_s16.wav"), addLoop("b.wav"),
                                              addLoop("C.wav", "amen_mono_s16.wav")};
    AppModel& m = start();
    m.selectFile(main);
    const std::vector<double> mainWaveform = m.sourceWaveform();
    const struct {
        bool mashup;
        bool check;
        std::string reference;
        const char* from;
    } cases[] = {
        {true, true, checked[2], "from 3 source files"}, // "C.wav" sorts before "a.wav"
        {true, false, main, "from 1 source files"},
        {false, true, main, "from 1 source file"},
    };
    for (const auto& c : cases) {
        m.setMashupMode(c.mashup);
        for (const std::string& path : checked)
            m.toggleMashupMembership(path, c.check);
        generate();
        EXPECT_EQ(m.status(), std::string("Generated 10 preview loop(s) ") + c.from + " using Grid chop model.");
        EXPECT_EQ(m.sourceWavData(), audio::loadWav(c.reference)) << c.from;
        EXPECT_EQ(m.sourceWaveform(), mainWaveform);
        EXPECT_EQ(m.selectedFile(), main);
        for (const GeneratedLoop& loop : m.generatedLoops())
            EXPECT_THAT(loop.name, StartsWith("Main_mqtry_grid"));
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
        m.setChopModel(chopModel);
        m.selectFile(a);
        generate();
        const auto before = m.generatedLoops();
        ASSERT_EQ(before.size(), 10u) << status;
        breakRun();
        changes.clear();
        generate();
        EXPECT_EQ(m.status(), status);
        EXPECT_EQ(m.generatedLoops(), before) << status;
        EXPECT_EQ(m.sourceWavData(), amen) << status;
        EXPECT_THAT(changes, ElementsAre(Field::isGenerating, Field::playingTarget, Field::playbackProgress,
                                         Field::status, Field::status, Field::isGenerating));
    }
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

} // namespace
} // namespace marquetry::model::test
