// Start-up, folders and settings, and the source side: scans and selection.
#include "Fakes.hpp"

#include "audio/WaveformEnvelope.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using AppModelFolders = ModelTest;
using AppModelSources = ModelTest;

TEST_F(AppModelFolders, FirstStartCreatesTheDefaultFoldersAndReportsTheEmptyScan) {
    const AppModel& m = start();
    EXPECT_EQ(std::tuple(m.sourceDir(), m.outputDir()), std::tuple(sourceFolder(), outputFolder()));
    EXPECT_TRUE(fs::is_directory(sourceFolder()) && fs::is_directory(outputFolder()));
    EXPECT_EQ(m.status(), "No WAV files found in source folder.");
    EXPECT_THAT(settings.values, IsEmpty()) << "only the save operations write settings";
    EXPECT_EQ(std::tuple(m.slices(), m.versions(), m.chopModel(), m.glitchAmount(), m.masterVolume(), m.seedText()),
              std::tuple(16, 10, chop::ChopModel::grid, 0.55, 0.85, ""));
    EXPECT_FALSE(m.mashupMode() || m.isGenerating() || m.selectedFile() || m.playingTarget());
}

TEST_F(AppModelFolders, StoredTildePathsAreCreatedExpandedAndOnlyTheScanWritesTheSourceBack) {
    settings.values = {{AppModel::sourceDirKey, "~/Loops"}, {AppModel::outputDirKey, "~/Out"}};
    const std::string only = addLoop("only.wav", "amen_s16.wav", home + "/Loops");
    const AppModel& m = start();
    EXPECT_EQ(std::tuple(m.sourceDir(), m.outputDir()), std::tuple(home + "/Loops", "~/Out"));
    EXPECT_TRUE(fs::is_directory(home + "/Out"));
    EXPECT_EQ(m.selectedFile(), only);
    EXPECT_EQ(m.sourceWaveform(), audio::waveformEnvelope(audio::loadWav(only), 1000));
}

TEST_F(AppModelFolders, SavingADefaultExpandsCreatesAndStoresWithoutRescanning) {
    const std::string loop = addLoop("a.wav");
    AppModel& m = start();
    m.setSourceDir("~/Loops");
    m.saveSourceAsDefault();
    EXPECT_EQ(m.status(), "Saved default source folder.");
    EXPECT_THAT(m.wavFiles(), ElementsAre(loop));
    m.setOutputDir("~/Out/deep");
    m.saveOutputAsDefault();
    EXPECT_EQ(m.status(), "Saved default output folder.");
    EXPECT_EQ(settings.values, (std::map<std::string, std::string>{{AppModel::sourceDirKey, home + "/Loops"},
                                                                   {AppModel::outputDirKey, home + "/Out/deep"}}));
    EXPECT_EQ(std::tuple(m.sourceDir(), m.outputDir()), std::tuple(home + "/Loops", home + "/Out/deep"));
    EXPECT_TRUE(fs::is_directory(home + "/Loops") && fs::is_directory(home + "/Out/deep"));
}

// Only the source is rescanned; the output folder is made and stored only by
// an export or a save.
TEST_F(AppModelFolders, ChoosersAndTheBrowserStartWhereTheFieldsSay) {
    AppModel& m = start();
    m.setSourceDir("~/Picked");
    m.setOutputDir("~/Out");
    m.chooseSourceFolder();
    EXPECT_EQ(m.sourceDir(), "~/Picked") << "cancelled";
    const std::string first = addLoop("A.wav", "amen_s16.wav", home + "/Picked");
    chooser.answer = home + "/Picked";
    m.chooseSourceFolder();
    EXPECT_EQ(m.selectedFile(), first);
    chooser.answer = home + "/Chosen";
    m.chooseOutputFolder();
    m.showOutputInFinder();
    EXPECT_THAT(browser.opened, ElementsAre(home + "/Chosen"));
    EXPECT_FALSE(fs::exists(home + "/Chosen"));
    EXPECT_THAT(settings.values, IsEmpty());
    ASSERT_EQ(chooser.asked.size(), 3u);
    EXPECT_EQ(std::tuple(chooser.asked[0].canCreateFolders, chooser.asked[0].initialFolder),
              std::tuple(false, "~/Picked"));
    EXPECT_EQ(std::tuple(chooser.asked[2].canCreateFolders, chooser.asked[2].initialFolder),
              std::tuple(true, home + "/Out"));
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

    generate();
    m.selectFile(b);
    EXPECT_FALSE(m.selectedFile() || m.sourceWavData()) << "an unlisted file is no selection";
    EXPECT_TRUE(m.sourceWaveform().empty() && m.generatedLoops().empty());
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

} // namespace
} // namespace marquetry::model::test
