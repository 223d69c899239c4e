// Export Selected and the export ticks, on a real output folder.
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AppModelExport : public ModelTest {
protected:
    AppModel& withVariations(std::int64_t count) {
        addLoop("a.wav");
        start().setVersions(count);
        generate();
        return *model;
    }
    std::string nameOf(std::size_t i) const { return model->generatedLoops().at(i).name; }
    audio::Bytes fileOf(std::size_t i) const {
        return audio::buildWavFileData(*model->sourceWavData(), model->generatedLoops().at(i).pcmData);
    }
};

TEST_F(AppModelExport, RefusesWithoutASourceOrATickAndCreatesNoFolder) {
    AppModel& m = start();
    m.setOutputDir(home + "/out");
    m.exportSelected();
    EXPECT_EQ(m.status(), "Load a source loop first.");

    addLoop("a.wav");
    m.refreshFiles();
    generate();
    // A tick is set, not flipped, and an unknown id sets nothing.
    for (int pass = 0; pass < 2; ++pass)
        for (const GeneratedLoop& loop : std::vector(m.generatedLoops()))
            m.toggleSelection(loop.id, false);
    m.toggleSelection(playback::Uuid{}, true);
    m.exportSelected();
    EXPECT_EQ(m.status(), "No generated loops selected for export.");
    EXPECT_FALSE(fs::exists(home + "/out"));
}

TEST_F(AppModelExport, WritesExactlyTheTickedVariationsIntoTheExpandedFolder) {
    AppModel& m = withVariations(5);
    m.toggleSourcePlayback();
    m.setOutputDir("~/Exports/new");
    for (const std::size_t i : {0u, 1u, 2u, 4u})
        m.toggleSelection(m.generatedLoops()[i].id, false);
    m.toggleSelection(m.generatedLoops()[1].id, true);
    const auto loops = m.generatedLoops();
    m.exportSelected();

    const std::string folder = home + "/Exports/new";
    EXPECT_EQ(m.outputDir(), folder);
    EXPECT_EQ(m.status(), "Exported 2 loop(s) to " + folder);
    EXPECT_THAT(namesIn(folder), ElementsAre(nameOf(1), nameOf(3)));
    for (const std::size_t i : {1u, 3u})
        EXPECT_EQ(audio::readWholeFile(folder + "/" + nameOf(i)), fileOf(i));
    EXPECT_EQ(m.generatedLoops(), loops);
    EXPECT_TRUE(m.playingTarget()) << "export leaves the preview alone";
    EXPECT_THAT(settings.values, IsEmpty());
}

TEST_F(AppModelExport, ReplacesAnExistingFileWhole) {
    AppModel& m = withVariations(1);
    addFile(nameOf(0), audio::Bytes(2 * fileOf(0).size(), 0xEE), outputFolder());
    m.exportSelected();
    EXPECT_EQ(audio::readWholeFile(outputFolder() + "/" + nameOf(0)), fileOf(0));
    EXPECT_THAT(namesIn(outputFolder()), ElementsAre(nameOf(0)));
}

TEST_F(AppModelExport, AFailedWriteKeepsEarlierFilesStopsAndLeavesNoTemporaries) {
    AppModel& m = withVariations(3);
    fs::create_directories(outputFolder() + "/" + nameOf(1));
    m.exportSelected();
    EXPECT_EQ(m.status(), "Export failed: " + outputFolder() + "/" + nameOf(1) + ": Is a directory");
    EXPECT_THAT(namesIn(outputFolder()), ElementsAre(nameOf(0), nameOf(1)));
    EXPECT_EQ(audio::readWholeFile(outputFolder() + "/" + nameOf(0)), fileOf(0));
    EXPECT_THAT(namesIn(outputFolder() + "/" + nameOf(1)), IsEmpty());

    addFile("blocker", {1}, home);
    m.setOutputDir(home + "/blocker/out");
    m.exportSelected();
    EXPECT_EQ(m.status(), "Export failed: " + home + "/blocker/out: Not a directory");
}

} // namespace
} // namespace marquetry::model::test
