// What a musician's folder may really hold: files cut short, empty files,
// folders and dangling links named like loops, a loop ten minutes long, and
// loops shorter than the slices asked for. Each gives its message or its
// result, and the model goes on working afterwards.
#include "support/ChildProcess.hpp"
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace marquetry::model::test {
namespace {

using ::testing::StartsWith;

// Stereo 16-bit noise, `frames` frames long, as a file image.
audio::Bytes image(std::size_t frames) {
    audio::Bytes pcm(frames * 4);
    for (std::size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = static_cast<std::uint8_t>(i * 2654435761u >> 13);
    return audio::buildWavFileData({1, 2, 44100, 176400, 4, 16, {}}, pcm);
}

class AppModelHostileInput : public ModelTest {
protected:
    // The model must still load, generate from and export a good loop.
    void expectStillUsable(AppModel& m) {
        const std::string good = addLoop("zz-good.wav");
        m.refreshFiles();
        m.selectFile(good);
        m.setSlices(16);
        m.setVersions(2);
        generate();
        ASSERT_THAT(m.status(), StartsWith("Generated 2 preview loop(s)"));
        m.exportSelected();
        EXPECT_THAT(m.status(), StartsWith("Exported 2 loop(s) to "));
    }
};

TEST_F(AppModelHostileInput, UnreadableSourcesReportTheirOwnReason) {
    audio::Bytes truncated = image(1000);
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
    expectStillUsable(m);
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

TEST_F(AppModelHostileInput, ATenMinuteLoopLoadsGeneratesAndExports) {
    constexpr std::size_t tenMinutes = 44100 * 600;
    addFile("long.wav", image(tenMinutes));
    AppModel& m = start();
    ASSERT_EQ(m.status(), "Loaded 1 WAV file(s).");
    EXPECT_EQ(m.sourceWaveform().size(), 1000u);
    m.setVersions(2);
    generate();
    ASSERT_EQ(m.status(), "Generated 2 preview loop(s) from 1 source file using Grid chop model.");
    EXPECT_EQ(m.generatedLoops()[1].waveform.size(), 1000u);
    m.exportSelected();
    EXPECT_THAT(m.status(), StartsWith("Exported 2 loop(s) to "));
}

TEST_F(AppModelHostileInput, MoreSlicesThanFramesUnderEveryModel) {
    addFile("tiny.wav", image(100));
    AppModel& m = start();
    m.setSlices(128);
    for (const chop::ChopModel chopModel : chop::allChopModels) {
        m.setChopModel(chopModel);
        generate();
        const bool evenSplit = chopModel != chop::ChopModel::transient && chopModel != chop::ChopModel::dice
                               && chopModel != chop::ChopModel::swarm;
        // Otherwise one frame per slice, at most: the slices cover the loop.
        EXPECT_THAT(m.status(), StartsWith(evenSplit ? "Error: Input loop too short for 128 slices."
                                                     : "Generated 10 preview loop(s)"))
            << chop::label(chopModel);
        EXPECT_FALSE(m.isGenerating());
    }
    expectStillUsable(m);
}

} // namespace
} // namespace marquetry::model::test
