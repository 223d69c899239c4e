// What a musician's folder may really hold: files cut short, empty files,
// folders, dangling links and special files named like loops. Each gives its
// message, and the model goes on working afterwards.
#include "support/ChildProcess.hpp"
#include "Fakes.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace marquetry::model::test {
namespace {

using ::testing::StartsWith;

using AppModelHostileInput = ModelTest;

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
