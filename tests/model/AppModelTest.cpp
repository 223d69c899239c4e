// Start-up, folders and settings, and the source side: scans, selection and
// what a musician's folder may really hold (files cut short, folders,
// dangling links and special files named like loops), each with its message
// and the model still working afterwards.
#include "support/ChildProcess.hpp"
#include "Fakes.hpp"

#include "audio/WaveformEnvelope.hpp"
#include "model/FileSystem.hpp"
#include "model/LaunchSettings.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using AppModelFolders = ModelTest;
using AppModelSources = ModelTest;
using AppModelHostileInput = ModelTest;

TEST_F(AppModelFolders, FirstStartCreatesTheDefaultFoldersAndReportsTheEmptyScan) {
    const AppModel& m = start();
    EXPECT_EQ(std::tuple(m.sourceDir(), m.outputDir()), std::tuple(sourceFolder(), outputFolder()));
    EXPECT_TRUE(fs::is_directory(sourceFolder()) && fs::is_directory(outputFolder()));
    EXPECT_EQ(m.status(), "No WAV files found in source folder.");
    EXPECT_THAT(settings.values, IsEmpty()) << "only the save operations write settings";
    EXPECT_EQ(m.settings(), RunSettings{});
    EXPECT_EQ(std::tuple(m.settings().plan.sliceCount, m.settings().plan.variationCount, m.settings().plan.chopModel,
                         m.settings().plan.glitchAmount, m.masterVolume(), m.settings().seedText),
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
    browser.starts = false;
    m.showOutputInFinder();
    EXPECT_EQ(m.status(), "Could not start a file manager to show " + home + "/Chosen.");
    EXPECT_THAT(settings.values, IsEmpty());
    ASSERT_EQ(chooser.asked.size(), 3u);
    EXPECT_EQ(std::tuple(chooser.asked[0].canCreateFolders, chooser.asked[0].initialFolder),
              std::tuple(false, "~/Picked"));
    EXPECT_EQ(std::tuple(chooser.asked[2].canCreateFolders, chooser.asked[2].initialFolder),
              std::tuple(true, home + "/Out"));
}

// The settings decorator behind the --source-dir launch option.
TEST(LaunchSettings, LaunchSourceFolderIsReadButNeverStored) {
    const std::string sourceKey = AppModel::sourceDirKey;
    FakeSettings stored;
    stored.values = {{sourceKey, "/stored/source"}, {AppModel::outputDirKey, "/stored/output"}};

    EXPECT_EQ(LaunchSettings(stored, std::nullopt).string(sourceKey), "/stored/source");
    LaunchSettings launch(stored, "/launch/loops");
    EXPECT_EQ(launch.string(sourceKey), "/launch/loops");
    EXPECT_EQ(launch.string(AppModel::outputDirKey), "/stored/output");
    EXPECT_EQ(launch.string("no such key"), std::nullopt);
    EXPECT_EQ(stored.values[sourceKey], "/stored/source");

    launch.setString(sourceKey, "/saved/source");
    EXPECT_EQ(stored.values[sourceKey], "/saved/source");
    EXPECT_EQ(launch.string(sourceKey), "/launch/loops") << "the launch folder wins for the whole launch";
}

// The window's command line: --source-dir, and a loop opened from the desktop.
TEST(LaunchSettings, AnOpenedLoopStartsInItsFolderWithItSelected) {
    const std::string here = pathText(fs::current_path());
    const std::string parent = pathText(fs::current_path().parent_path());
    using Launch = LaunchSource;
    EXPECT_EQ(launchSource(std::nullopt, std::nullopt), Launch{});
    EXPECT_EQ(launchSource("/loops/breaks/", std::nullopt), (Launch{"/loops/breaks", std::nullopt}));
    EXPECT_EQ(launchSource("../x/./", std::nullopt), (Launch{parent + "/x", std::nullopt}));
    EXPECT_EQ(launchSource(std::nullopt, "/loops/./a/../amen.wav"), (Launch{"/loops", "/loops/amen.wav"}));
    EXPECT_EQ(launchSource("/elsewhere", "amen.wav"), (Launch{here, here + "/amen.wav"}))
        << "the opened loop's folder wins, or the loop could not be selected";
    EXPECT_EQ(launchSource("/loops", ""), (Launch{"/loops", std::nullopt})) << "an empty %f opens nothing";
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

TEST_F(AppModelSources, TempoIsEstimatedOnDecodingAndACorrectionWinsForTheSession) {
    const std::string amen = addLoop("a.wav");
    const std::string breakbeat = addLoop("b.wav", "breakbeat_s16.wav");
    AppModel& m = start();
    std::vector<AppModel::Field> fields;
    m.subscribe([&](const AppModel::Change& change) { fields.push_back(change.field); });
    EXPECT_EQ(m.tempoFor(amen), (chop::TempoEstimate{136.9, 4, 1}));
    EXPECT_EQ(m.tempoFor(breakbeat), std::nullopt) << "not decoded yet";

    m.setTempoOverride(breakbeat, 63);
    EXPECT_EQ(m.tempoFor(breakbeat), (chop::TempoEstimate{63, 0, 0})) << "no length known yet";
    m.selectFile(breakbeat);
    EXPECT_EQ(m.tempoFor(breakbeat), (chop::TempoEstimate{63, 2, 0.5}));
    m.setTempoOverride(amen, 68.45);
    EXPECT_EQ(m.tempoFor(amen), (chop::TempoEstimate{68.5, 2, 0.5}));
    EXPECT_EQ(m.tempoOverrides(), (std::map<std::string, double>{{amen, 68.45}, {breakbeat, 63}}));

    fields.clear();
    for (const double refused : {19.9, 999.1, std::nan("")}) {
        m.setTempoOverride(amen, refused);
        EXPECT_EQ(m.status(), "Tempo must be from 20 to 999 BPM.");
    }
    EXPECT_THAT(fields, ::testing::Each(AppModel::Field::status));
    m.setTempoOverride(amen, std::nullopt);
    EXPECT_EQ(m.tempoFor(amen), (chop::TempoEstimate{136.9, 4, 1}));
    EXPECT_EQ(fields.back(), AppModel::Field::tempo);
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

TEST_F(AppModelHostileInput, UnreadableSourcesReportTheirOwnReason) {
    audio::Bytes truncated = audio::readWholeFile(audio::test::testLoopPath("amen_s16.wav"));
    truncated.resize(truncated.size() / 2); // a recorder that died mid-take
    addFile("a-truncated.wav", truncated);
    addFile("b-empty.wav", {});
    fs::create_directories(sourceFolder() + "/c-folder.wav");
    fs::create_symlink(home + "/nowhere.wav", sourceFolder() + "/d-dangling.wav");
    const std::string good = addLoop("e-good.wav");
    AppModel& m = start();
    EXPECT_EQ(m.status(), "Loaded 5 WAV file(s).") << "the scan's count replaces the load's message";
    m.selectFile(good);
    generate();

    const std::pair<const char*, std::string> expected[] = {
        {"a-truncated.wav", "Error loading source: Corrupt chunk data."},
        {"b-empty.wav", "Error loading source: WAV file is too small."},
        {"c-folder.wav", "Error loading source: " + sourceFolder() + "/c-folder.wav: Is a directory"},
        {"d-dangling.wav", "Error loading source: " + sourceFolder() + "/d-dangling.wav: No such file or directory"},
    };
    for (const auto& [name, status] : expected) {
        m.selectFile(sourceFolder() + "/" + name);
        EXPECT_EQ(m.status(), status);
        EXPECT_TRUE(m.selectedFile() && !m.sourceWavData() && m.sourceWaveform().empty());
        EXPECT_TRUE(m.generatedLoops().empty());
        generate(); // the selection is kept, so Generate runs and fails the same way
        EXPECT_THAT(m.status(), StartsWith("Error: "));
        EXPECT_FALSE(m.isGenerating());
    }
    m.selectFile(good);
    generate();
    m.exportSelected();
    EXPECT_THAT(m.status(), StartsWith("Exported 10 loop(s) to "));
}

// The model decodes the first file of its folder as it starts, so the
// window would never appear if that file could block; a child process turns
// such a hang into a failure.
TEST_F(AppModelHostileInput, SpecialFilesFirstInTheFolderAreRefusedAtOnce) {
    fs::create_directories(sourceFolder());
    ASSERT_EQ(::mkfifo((sourceFolder() + "/a-pipe.wav").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", sourceFolder() + "/b-zero.wav");
    addLoop("c-good.wav");
    const std::string report = audio::test::inChildProcess([&] {
        AppModel& m = start();
        std::string lines = m.status() + "\n" + m.selectedFile().value_or("none") + "\n";
        for (const char* name : {"a-pipe.wav", "b-zero.wav", "c-good.wav"}) {
            m.selectFile(sourceFolder() + "/" + name);
            lines += m.status() + "\n";
        }
        return lines;
    });
    EXPECT_EQ(report, "Loaded 3 WAV file(s).\n" + sourceFolder() + "/a-pipe.wav\n" + "Error loading source: "
                          + sourceFolder() + "/a-pipe.wav: is a named pipe (FIFO), not a file\n"
                          + "Error loading source: " + sourceFolder()
                          + "/b-zero.wav: is a character device, not a file\n" + "Loaded source: c-good.wav\n");
}

} // namespace
} // namespace marquetry::model::test
