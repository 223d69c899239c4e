// The command line end to end: the real program on real drum breaks, in a
// temporary folder, with HOME pointed at an empty folder of its own.
#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "chop/ChopModel.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;

struct RunResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string readText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Every file of a folder by name, with its bytes.
std::map<std::string, std::string> folderContents(const fs::path& folder) {
    std::map<std::string, std::string> contents;
    for (const auto& entry : fs::directory_iterator(folder))
        contents[entry.path().filename().string()] = readText(entry.path());
    return contents;
}

std::string lines(std::initializer_list<std::string> texts) {
    std::string joined;
    for (const std::string& text : texts)
        joined += text + "\n";
    return joined;
}

class Cli : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "marquetry-cli-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
        fs::create_directories(home());
        fs::create_directories(source());
    }

    void TearDown() override {
        // Neither default folders nor settings: the user's home stays untouched.
        EXPECT_TRUE(fs::is_empty(home())) << "the command line wrote into HOME";
        fs::remove_all(root_);
    }

    fs::path home() const { return root_ / "home"; }
    fs::path source() const { return root_ / "source"; }
    fs::path at(const std::string& relative) const { return root_ / relative; }

    void copyLoops(std::initializer_list<const char*> names) const {
        for (const char* name : names)
            fs::copy_file(fs::path(MARQUETRY_TEST_LOOPS_DIR) / name, source() / name);
    }

    // Runs the program in the temporary folder, so relative paths land there.
    RunResult run(const std::vector<std::string>& arguments) const {
        std::string command = "cd " + shellQuoted(root_.string()) + " && HOME=" + shellQuoted(home().string()) + " "
                              + shellQuoted(MARQUETRY_CLI);
        // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict)
        // about a literal + string temporary here.
        for (const std::string& argument : arguments)
            command.append(" ").append(shellQuoted(argument));
        command.append(" >").append(shellQuoted(at("stdout.txt").string()));
        command.append(" 2>").append(shellQuoted(at("stderr.txt").string()));
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(at("stdout.txt")), readText(at("stderr.txt"))};
    }

    fs::path root_;
};

TEST_F(Cli, SameSeedRepeatsTheFilesAndAnotherSeedChangesThem) {
    copyLoops({"amen_s16.wav", "breakbeat_s16.wav"});
    const auto first = run({"generate", "--source", "source/amen_s16.wav", "--seed", "42", "--output", "first"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out, lines({"Generating previews...",
                                "Generated 10 preview loop(s) from 1 source file using Grid chop model.",
                                "Exported 10 loop(s) to first"}));
    EXPECT_EQ(first.err, "");

    ASSERT_EQ(run({"generate", "--source=source/../source/amen_s16.wav", "--seed=42", "--output=again"}).exitCode, 0);
    ASSERT_EQ(run({"generate", "--source", "source/amen_s16.wav", "--seed", "43", "--output", "other"}).exitCode, 0);

    const auto files = folderContents(at("first"));
    ASSERT_EQ(files.size(), 10u);
    EXPECT_TRUE(files.contains("amen_s16_mqtry_grid01.wav"));
    EXPECT_TRUE(files.contains("amen_s16_mqtry_grid10.wav"));
    EXPECT_EQ(folderContents(at("again")), files);
    const auto other = folderContents(at("other"));
    ASSERT_EQ(other.size(), 10u);
    EXPECT_NE(other, files);
    EXPECT_EQ(folderContents(source()).size(), 2u) << "nothing may be written beside the sources";
}

TEST_F(Cli, MashupPoolsTheGivenFilesWithTheFirstByNameAsReference) {
    copyLoops({"amen_s16.wav", "breakbeat_s16.wav", "amen_mono_s16.wav", "amen_f32.wav"});
    const auto result = run({"generate", "--source", "source/amen_s16.wav", "--mashup", "source/breakbeat_s16.wav",
                             "--mashup", "source/amen_mono_s16.wav", "--mashup", "source/amen_f32.wav",
                             "--variations", "3", "--seed", "9", "--output", "out"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Generated 3 preview loop(s) from 3 source files using Grid chop model."),
              std::string::npos)
        << result.out;
    // Names follow the selected file, the header the pool's reference source
    // (amen_f32.wav, first by name): format code 3 at byte 20. Slices of the
    // other formats are pooled as raw bytes, so the reader may refuse the
    // data's length; only the header is checked here.
    const auto files = folderContents(at("out"));
    ASSERT_EQ(files.size(), 3u);
    const std::string& exported = files.at("amen_s16_mqtry_grid03.wav");
    ASSERT_GT(exported.size(), 44u);
    EXPECT_EQ(exported.substr(20, 2), std::string("\x03\x00", 2));
}

TEST_F(Cli, EveryChopModelWritesLoopsTheReaderAccepts) {
    copyLoops({"amen_s16.wav"});
    const auto original = audio::loadWav((source() / "amen_s16.wav").string());
    for (const chop::ChopModel model : chop::allChopModels) {
        const std::string label(chop::label(model));
        std::string tag;
        std::string shouted;
        for (const unsigned char c : label) {
            tag += static_cast<char>(std::tolower(c));
            shouted += static_cast<char>(std::toupper(c));
        }
        SCOPED_TRACE(label);

        const auto result = run({"generate", "--source", "source/amen_s16.wav", "--model", shouted, "--variations", "1",
                                 "--seed", "7", "--glitch", "0.9", "--output", "out-" + tag});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(result.out.find("using " + label + " chop model."), std::string::npos) << result.out;

        const fs::path file = at("out-" + tag) / ("amen_s16_mqtry_" + tag + "01.wav");
        ASSERT_TRUE(fs::exists(file));
        const auto loop = audio::loadWav(file.string());
        EXPECT_EQ(fs::file_size(file), 44 + loop.pcmData.size());
        EXPECT_FALSE(loop.pcmData.empty());
        EXPECT_EQ(loop.channels, original.channels);
        EXPECT_EQ(loop.sampleRate, original.sampleRate);
        EXPECT_EQ(loop.bitsPerSample, original.bitsPerSample);
    }
}

TEST_F(Cli, PickExportsOnlyTheNamedVariations) {
    copyLoops({"amen_s16.wav"});
    const auto generate = [&](std::string output, std::string pick) {
        return run({"generate", "--source", "source/amen_s16.wav", "--variations", "4", "--seed", "5", "--output",
                    output, "--pick", pick});
    };
    ASSERT_EQ(generate("all", "all").exitCode, 0);
    const auto result = generate("picked", "3,1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Exported 2 loop(s) to picked"), std::string::npos) << result.out;

    const auto everything = folderContents(at("all"));
    const auto chosen = folderContents(at("picked"));
    EXPECT_EQ(chosen, (std::map<std::string, std::string>{
                          {"amen_s16_mqtry_grid01.wav", everything.at("amen_s16_mqtry_grid01.wav")},
                          {"amen_s16_mqtry_grid03.wav", everything.at("amen_s16_mqtry_grid03.wav")}}));
}

TEST_F(Cli, RefusalsAndFailedRunsExitOneWithTheLastStatusOnStandardError) {
    copyLoops({"amen_s16.wav"});
    // Ten frames: a valid WAV too short to cut into 16 slices.
    const audio::WavData tiny{.audioFormat = 1, .channels = 1, .sampleRate = 44100, .byteRate = 88200,
                              .blockAlign = 2, .bitsPerSample = 16, .pcmData = {}};
    const auto image = audio::buildWavFileData(tiny, audio::Bytes(20, 0));
    std::ofstream(source() / "tiny.wav", std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
    std::ofstream(source() / "broken.wav") << "not a wave";
    std::ofstream(at("blocker")) << "a file where the folder should go";

    const auto refused = run({"generate", "--source", "source/amen_s16.wav", "--slices", "2", "--output", "out"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, "Slices must be >= 4 and versions >= 1.\n");
    EXPECT_EQ(refused.err, "Slices must be >= 4 and versions >= 1.\n");

    const auto tooShort = run({"generate", "--source", "source/tiny.wav", "--output", "out"});
    EXPECT_EQ(tooShort.exitCode, 1);
    EXPECT_EQ(tooShort.out, lines({"Generating previews...", "Error: Input loop too short for 16 slices."}));
    EXPECT_EQ(tooShort.err, "Error: Input loop too short for 16 slices.\n");

    const auto unreadable = run({"generate", "--source", "source/broken.wav", "--output", "out"});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_EQ(unreadable.out, "");
    EXPECT_TRUE(unreadable.err.starts_with("Error loading source: ")) << unreadable.err;

    EXPECT_FALSE(fs::exists(at("out"))) << "no folder may be made without an export";
    EXPECT_EQ(folderContents(source()).size(), 3u);

    const auto blocked = run({"generate", "--source", "source/amen_s16.wav", "--output", "blocker/out"});
    EXPECT_EQ(blocked.exitCode, 1);
    EXPECT_TRUE(blocked.err.starts_with("Export failed: ")) << blocked.err;
    EXPECT_TRUE(blocked.out.ends_with(blocked.err)) << blocked.out;
}

TEST_F(Cli, ArgumentErrorsPrintTheUsageAndExitTwoBeforeAnythingRuns) {
    copyLoops({"amen_s16.wav"});
    fs::create_directories(at("elsewhere"));
    fs::copy_file(source() / "amen_s16.wav", at("elsewhere/amen_s16.wav"));

    const std::vector<std::vector<std::string>> mistakes{
        {"generate", "--source", "source/amen_s16.wav", "--mashup", "elsewhere/amen_s16.wav", "--output", "out"},
        {"generate", "--source", "source/amen_s16.wav", "--colour", "red", "--output", "out"},
        {"generate", "--source", "source/amen_s16.wav"},
        {"generate", "--source", "source/amen_s16.wav", "--slices", "16x", "--output", "out"},
        {"generate", "--source", "source/amen_s16.wav", "--model", "Blender", "--output", "out"},
        {"generate", "--source", "source/amen_s16.wav", "--pick", "2,11", "--output", "out"},
        {"generate", "--source", "source/missing.wav", "--output", "out"},
        {},
    };
    for (const auto& arguments : mistakes) {
        const auto result = run(arguments);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("marquetry-cli: "));
        EXPECT_NE(result.err.find("Usage:"), std::string::npos);
    }
    EXPECT_FALSE(fs::exists(at("out")));
    EXPECT_EQ(folderContents(source()).size(), 1u);
}

TEST_F(Cli, HelpAndVersionGoToStandardOutput) {
    const auto help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.starts_with("Usage:"));
    EXPECT_EQ(help.err, "");

    const auto version = run({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, "marquetry-cli " MARQUETRY_VERSION "\n");
}

} // namespace
} // namespace marquetry::cli
