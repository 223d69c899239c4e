// Importing files into a folder: names, collisions, and refusals that leave
// nothing behind. What becomes of the samples is tested with the audio layer.
#include "support/ChildProcess.hpp"
#include "Fakes.hpp"

#include "audio/AudioImport.hpp"
#include "model/Import.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <csignal>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class Import : public ModelTest {
protected:
    std::string folder() const { return home + "/into"; }
    std::string flac() const { return audio::test::testLoopPath("import/amen_s16.flac"); }

    /// The message importing `source` is refused with.
    std::string refusalOf(const std::string& source) {
        try {
            importAudioFile(source, folder());
        } catch (const ImportError& error) {
            return error.what();
        }
        return "(imported)";
    }
};

TEST_F(Import, WritesAPlainWavNamedAfterTheStemAndNeverReplacesAFile) {
    const audio::Bytes kept(100, 0xEE);
    addFile("amen_s16.wav", kept, folder());
    fs::create_symlink("nowhere", folder() + "/amen_s16-3.wav");

    const std::string first = importAudioFile(flac(), folder());
    const std::string second = importAudioFile(flac(), folder());
    EXPECT_EQ(first, folder() + "/amen_s16-2.wav");
    EXPECT_EQ(second, folder() + "/amen_s16-4.wav");
    EXPECT_THAT(namesIn(folder()), ElementsAre("amen_s16-2.wav", "amen_s16-3.wav", "amen_s16-4.wav", "amen_s16.wav"));
    EXPECT_EQ(audio::readWholeFile(folder() + "/amen_s16.wav"), kept);

    // The plain 44-byte header the writer makes, around every sample.
    const audio::WavData expected = audio::importAudio(flac());
    EXPECT_EQ(audio::readWholeFile(first), audio::buildWavFileData(expected, expected.pcmData));
    EXPECT_TRUE(audio::loadWav(second) == expected);
}

TEST_F(Import, NamesTheFileAfterTheLastExtensionOnly) {
    const audio::Bytes bytes = audio::readWholeFile(flac());
    for (const auto& [name, imported] : {std::pair{"break.v2.FLAC", "break.v2.wav"}, std::pair{"kick", "kick.wav"},
                                         std::pair{".hidden", ".hidden.wav"}, std::pair{"x.wav", "x-2.wav"}}) {
        const std::string source = addFile(name, bytes, folder());
        EXPECT_EQ(importAudioFile(source, folder()), folder() + "/" + imported);
    }
}

// Every refusal names the file and why, and leaves the folder as it was:
// no new file, no temporary.
TEST_F(Import, RefusesWithOneSentenceAndLeavesNothing) {
    const std::string sources = home + "/sources";
    fs::create_directories(sources);
    const std::string text = addFile("notes.wav", {'h', 'i'}, sources);
    const std::string fifo = sources + "/pipe.wav";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string device = sources + "/zero.wav";
    fs::create_symlink("/dev/zero", device);
    addFile("existing.wav", {1, 2, 3}, folder());

    EXPECT_THAT(refusalOf(text), StartsWith(text + ": Not an audio file libsndfile can read ("));
    EXPECT_EQ(refusalOf(fifo), fifo + ": It is a named pipe (FIFO), not a regular file.");
    EXPECT_EQ(refusalOf(device), device + ": It is a device, not a regular file.");
    EXPECT_EQ(refusalOf(sources), sources + ": It is a folder, not a file.");
    EXPECT_EQ(refusalOf(sources + "/missing.flac"), sources + "/missing.flac: No such file or directory.");
    EXPECT_THAT(namesIn(folder()), ElementsAre("existing.wav"));

    fs::remove_all(folder());
    EXPECT_EQ(refusalOf(flac()),
              flac() + ": Cannot write " + folder() + "/amen_s16.wav: No such file or directory.");
    EXPECT_FALSE(fs::exists(folder())) << "the folder is not created";
}

// A write that fails part way, with file sizes limited in a child process so
// that the limit binds nothing else: the temporary file goes too.
TEST_F(Import, AFailedWriteLeavesNoTemporary) {
    fs::create_directories(folder());
    const std::string message = audio::test::inChildProcess(
        [&] {
            std::signal(SIGXFSZ, SIG_IGN);
            return refusalOf(flac());
        },
        {{RLIMIT_FSIZE, 100'000}});
    EXPECT_EQ(message, flac() + ": Cannot write " + folder() + "/amen_s16.wav: File too large.");
    EXPECT_THAT(namesIn(folder()), IsEmpty());
}

// What the window's Import... and drop do: convert, rescan, select the new
// loop, and say what was refused.
TEST_F(Import, TheModelImportsIntoTheSourceFolderAndSelectsTheNewLoop) {
    addLoop("b.wav");
    AppModel& m = start();
    const std::string text = addFile("notes.txt", {'h', 'i'}, home);
    m.importFiles({flac(), text});
    EXPECT_EQ(m.selectedFile(), sourceFolder() + "/amen_s16.wav");
    EXPECT_EQ(m.wavFiles().size(), 2u);
    EXPECT_THAT(m.status(), ::testing::StartsWith("Imported 1 of 2 file(s); import failed: " + text + ": "));
    m.importFiles({text});
    EXPECT_THAT(m.status(), ::testing::StartsWith("Import failed: " + text + ": "));
    m.importFiles({flac()});
    EXPECT_EQ(m.status(), "Imported 1 file(s).");
    EXPECT_EQ(m.selectedFile(), sourceFolder() + "/amen_s16-2.wav");
}

} // namespace
} // namespace marquetry::model::test
