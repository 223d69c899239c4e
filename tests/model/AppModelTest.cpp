// Start-up, folders and settings, and the source side: scans, selection and
// mashup check marks.
#include "Fakes.hpp"

#include "audio/WaveformEnvelope.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using AppModelStartup = ModelTest;
using AppModelFolders = ModelTest;
using AppModelSources = ModelTest;

TEST_F(AppModelStartup, FirstStartCreatesTheDefaultFoldersAndReportsTheEmptyScan) {
    const AppModel& m = start();
    EXPECT_EQ(m.sourceDir(), sourceFolder());
    EXPECT_EQ(m.outputDir(), outputFolder());
    EXPECT_TRUE(fs::is_directory(sourceFolder()) && fs::is_directory(outputFolder()));
    EXPECT_EQ(m.status(), "No WAV files found in source folder.");
    EXPECT_THAT(settings.values, IsEmpty()) << "only the save operations write settings";
    EXPECT_EQ(std::tuple(m.slices(), m.versions(), m.chopModel(), m.glitchAmount(), m.masterVolume(), m.seedText()),
              std::tuple(16, 10, chop::ChopModel::grid, 0.55, 0.85, ""));
    EXPECT_FALSE(m.mashupMode() || m.isGenerating() || m.selectedFile() || m.playingTarget());
    EXPECT_THAT(m.mashupSourcePaths(), IsEmpty());
}

TEST_F(AppModelStartup, StoredTildePathsAreCreatedExpandedAndOnlyTheScanWritesTheSourceBack) {
    settings.values = {{AppModel::sourceDirKey, "~/Loops"}, {AppModel::outputDirKey, "~/Out"}};
    const std::string only = addLoop("only.wav", "amen_s16.wav", home + "/Loops");
    const AppModel& m = start();
    EXPECT_EQ(m.sourceDir(), home + "/Loops");
    EXPECT_EQ(m.outputDir(), "~/Out");
    EXPECT_TRUE(fs::is_directory(home + "/Out"));
    EXPECT_THAT(m.wavFiles(), ElementsAre(only));
    EXPECT_EQ(m.selectedFile(), only);
    EXPECT_EQ(m.sourceWavData(), audio::loadWav(only));
    EXPECT_EQ(m.sourceWaveform(), audio::waveformEnvelope(*m.sourceWavData(), 1000));
    EXPECT_EQ(m.status(), "Loaded 1 WAV file(s).");
}

TEST_F(AppModelFolders, SavingADefaultExpandsCreatesAndStoresWithoutRescanning) {
    const std::string loop = addLoop("a.wav");
    AppModel& m = start();
    m.setSourceDir("~/Loops");
    m.saveSourceAsDefault();
    EXPECT_EQ(m.sourceDir(), home + "/Loops");
    EXPECT_EQ(settings.values[AppModel::sourceDirKey], home + "/Loops");
    EXPECT_EQ(m.status(), "Saved default source folder.");
    EXPECT_THAT(m.wavFiles(), ElementsAre(loop));

    m.setOutputDir("~/Out/deep");
    m.saveOutputAsDefault();
    EXPECT_EQ(m.outputDir(), home + "/Out/deep");
    EXPECT_EQ(settings.values[AppModel::outputDirKey], home + "/Out/deep");
    EXPECT_EQ(m.status(), "Saved default output folder.");
    EXPECT_TRUE(fs::is_directory(home + "/Loops") && fs::is_directory(home + "/Out/deep"));
}

TEST_F(AppModelFolders, ChoosersStartWhereTheFieldsSayAndOnlyTheSourceIsRescanned) {
    AppModel& m = start();
    m.setSourceDir("~/Elsewhere");
    m.setOutputDir("~/Out");
    changes.clear();
    m.chooseSourceFolder();
    m.chooseOutputFolder();
    EXPECT_THAT(changes, IsEmpty()) << "cancelled";

    const std::string first = addLoop("A.wav", "amen_s16.wav", home + "/Picked");
    addLoop("b.wav", "amen_s16.wav", home + "/Picked");
    chooser.answer = home + "/Picked";
    m.chooseSourceFolder();
    EXPECT_EQ(m.selectedFile(), first);
    EXPECT_EQ(m.status(), "Loaded 2 WAV file(s).");

    changes.clear();
    chooser.answer = home + "/Chosen";
    m.chooseOutputFolder();
    EXPECT_THAT(changes, ElementsAre(Field::outputDir));
    EXPECT_EQ(m.outputDir(), home + "/Chosen");
    EXPECT_FALSE(fs::exists(home + "/Chosen"));
    EXPECT_THAT(settings.values, IsEmpty());

    ASSERT_EQ(chooser.asked.size(), 4u);
    EXPECT_FALSE(chooser.asked[2].canCreateFolders);
    EXPECT_EQ(chooser.asked[2].initialFolder, "~/Elsewhere");
    EXPECT_TRUE(chooser.asked[3].canCreateFolders);
    EXPECT_EQ(chooser.asked[3].initialFolder, home + "/Out");
}

TEST_F(AppModelFolders, ShowingTheOutputFolderOpensItExpandedWithoutCreatingIt) {
    AppModel& m = start();
    m.setOutputDir("~/Later");
    m.showOutputInFinder();
    EXPECT_THAT(browser.opened, ElementsAre(home + "/Later"));
    EXPECT_FALSE(fs::exists(home + "/Later"));
}

TEST_F(AppModelSources, ScanListsWavEntriesByLowercasedNameAndSelectsTheFirst) {
    const std::string upper = addLoop("B.wav");
    const std::string lower = addLoop("a.WAV", "breakbeat_s16.wav");
    addFile("c.txt", {1});
    addFile("wav", {1});
    fs::create_directories(sourceFolder() + "/Sub");
    fs::create_directories(sourceFolder() + "/d.wav");
    const AppModel& m = start();
    EXPECT_THAT(m.wavFiles(), ElementsAre(lower, upper, sourceFolder() + "/d.wav"));
    EXPECT_EQ(m.selectedFile(), lower);
    EXPECT_EQ(m.sourceWavData(), audio::loadWav(lower));
    EXPECT_EQ(m.status(), "Loaded 3 WAV file(s).");
}

TEST_F(AppModelSources, RescanMovesADeletedSelectionToTheFirstFileAndDropsItsCheckMark) {
    const std::string a = addLoop("a.wav", "breakbeat_s16.wav");
    const std::string b = addLoop("b.wav");
    AppModel& m = start();
    m.selectFile(b);
    m.toggleMashupMembership(a, true);
    m.toggleMashupMembership(b, true);
    fs::remove(b);
    m.refreshFiles();
    EXPECT_EQ(m.selectedFile(), a);
    EXPECT_EQ(m.sourceWavData(), audio::loadWav(a));
    EXPECT_THAT(m.mashupSourcePaths(), ElementsAre(a));
}

TEST_F(AppModelSources, RescanOfAVanishedFolderClearsTheSourceSideButKeepsCheckMarks) {
    const std::string a = addLoop("a.wav");
    AppModel& m = start();
    m.toggleMashupMembership(a, true);
    generate();
    fs::remove_all(sourceFolder());
    m.refreshFiles();
    EXPECT_EQ(m.status(), "Could not read source folder.");
    EXPECT_TRUE(m.wavFiles().empty() && m.sourceWaveform().empty() && m.generatedLoops().empty());
    EXPECT_FALSE(m.selectedFile() || m.sourceWavData());
    EXPECT_THAT(m.mashupSourcePaths(), ElementsAre(a));
}

TEST_F(AppModelSources, AFileThatIsNotWavStaysSelectedWithTheReadersMessage) {
    const std::string bad = addFile("bad.wav", audio::Bytes(64, 'x'));
    addLoop("good.wav");
    AppModel& m = start();
    EXPECT_EQ(m.selectedFile(), bad);
    EXPECT_EQ(m.status(), "Loaded 2 WAV file(s).") << "the scan's count replaces the load's message";
    m.selectFile(sourceFolder() + "/good.wav");
    generate();
    m.selectFile(bad);
    EXPECT_EQ(m.selectedFile(), bad);
    EXPECT_TRUE(m.sourceWaveform().empty() && m.generatedLoops().empty());
    EXPECT_FALSE(m.sourceWavData());
    EXPECT_EQ(m.status(), "Error loading source: Invalid WAV header.");
}

TEST_F(AppModelSources, EveryWriteOfTheSelectionReloadsItAndAnUnlistedOneClearsTheSource) {
    const std::string a = addLoop("a.wav");
    AppModel& m = start();
    generate();
    changes.clear();
    m.setSelectedFile(a);
    EXPECT_THAT(changes, ElementsAre(Field::selectedFile, Field::playingTarget, Field::playbackProgress,
                                     Field::sourceWavData, Field::sourceWaveform, Field::generatedLoops,
                                     Field::status));
    EXPECT_EQ(m.status(), "Loaded source: a.wav");

    for (const auto& path : {std::optional(a + "x"), std::optional<std::string>()}) {
        m.selectFile(a);
        generate();
        m.selectFile(path);
        EXPECT_FALSE(m.selectedFile() || m.sourceWavData());
        EXPECT_TRUE(m.sourceWaveform().empty() && m.generatedLoops().empty());
        EXPECT_EQ(m.status(), "Generated 10 preview loop(s) from 1 source file using Grid chop model.");
    }
}

TEST_F(AppModelSources, MashupCheckMarksAreASetAndTouchNothingElse) {
    const std::string a = addLoop("a.wav");
    AppModel& m = start();
    generate();
    changes.clear();
    m.toggleMashupMembership(a, true);
    m.toggleMashupMembership(a, true);
    m.toggleMashupMembership("/not/listed.wav", false);
    EXPECT_THAT(m.mashupSourcePaths(), ElementsAre(a));
    m.toggleMashupMembership(a, false);
    EXPECT_THAT(m.mashupSourcePaths(), IsEmpty());
    EXPECT_EQ(m.generatedLoops().size(), 10u);
    EXPECT_THAT(changes, ::testing::Each(Field::mashupSourcePaths));
}

} // namespace
} // namespace marquetry::model::test
