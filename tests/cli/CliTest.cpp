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

#include <sys/stat.h>
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
        std::string command = "cd " + shellQuoted(root_.string()) + " && " + limit + "env HOME="
                              + shellQuoted(home().string()) + " " + shellQuoted(MARQUETRY_CLI);
        // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict)
        // about a literal + string temporary here.
        for (const std::string& argument : arguments)
            command.append(" ").append(shellQuoted(argument));
        command.append(" >").append(shellQuoted(at("stdout.txt").string()));
        command.append(" 2>").append(shellQuoted(at("stderr.txt").string()));
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(at("stdout.txt")), readText(at("stderr.txt"))};
    }

    // Generates from source/amen_s16.wav into `output` with further arguments.
    RunResult generate(const std::string& output, std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"generate", "--source", "source/amen_s16.wav", "--output", output});
        return run(more);
    }

    fs::path root_;
    std::string limit; ///< what the shell runs the program under, such as "ulimit -v N && " or "timeout N "
};

TEST_F(Cli, SameSeedRepeatsTheFilesAnotherSeedChangesThemAndPickExportsASubset) {
    copyLoops({"amen_s16.wav"});
    const auto first = generate("first", {"--seed", "42"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out, "Generating previews...\n"
                         "Generated 10 preview loop(s) from 1 source file using Grid chop model.\n"
                         "Exported 10 loop(s) to first\n");
    EXPECT_EQ(first.err, "Seed of this run: 42\n");
    ASSERT_EQ(run({"generate", "--source=source/../source/amen_s16.wav", "--seed=42", "--output=again"}).exitCode, 0);
    ASSERT_EQ(generate("other", {"--seed", "43"}).exitCode, 0);

    const auto files = folderContents(at("first"));
    ASSERT_EQ(files.size(), 10u);
    EXPECT_TRUE(files.contains("amen_s16_mqtry_grid01.wav") && files.contains("amen_s16_mqtry_grid10.wav"));
    EXPECT_EQ(folderContents(at("again")), files);
    EXPECT_NE(folderContents(at("other")), files);
    EXPECT_EQ(folderContents(source()).size(), 1u) << "nothing may be written beside the sources";

    const auto picked = generate("picked", {"--seed", "42", "--pick", "3,1"});
    EXPECT_NE(picked.out.find("Exported 2 loop(s) to picked"), std::string::npos) << picked.out;
    const std::map<std::string, std::string> pickedFiles{
        {"amen_s16_mqtry_grid01.wav", files.at("amen_s16_mqtry_grid01.wav")},
        {"amen_s16_mqtry_grid03.wav", files.at("amen_s16_mqtry_grid03.wav")}};
    EXPECT_EQ(folderContents(at("picked")), pickedFiles);
}

TEST_F(Cli, MashupPoolsTheGivenFilesWithTheFirstByNameAsReference) {
    copyLoops({"amen_s16.wav", "breakbeat_s16.wav", "amen_mono_s16.wav", "amen_f32.wav"});
    const auto result = generate("out", {"--mashup", "source/breakbeat_s16.wav", "--mashup", "source/amen_mono_s16.wav",
                                         "--mashup", "source/amen_f32.wav", "--variations", "3", "--seed", "9"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Generated 3 preview loop(s) from 3 source files"), std::string::npos) << result.out;
    // Names follow the selected file, the header the pool's reference source
    // (amen_f32.wav, first by name): format code 3 at byte 20. Slices of the
    // other formats are pooled as raw bytes, so the reader may refuse the
    // data's length; only the header is checked here.
    const auto files = folderContents(at("out"));
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files.at("amen_s16_mqtry_grid03.wav").substr(20, 2), std::string("\x03\x00", 2));
}

TEST_F(Cli, EveryChopModelWritesLoopsInTheSourceFormat) {
    copyLoops({"amen_s16.wav"});
    const auto original = audio::loadWav((source() / "amen_s16.wav").string());
    for (const chop::ChopModel model : chop::allChopModels) {
        const std::string label(chop::label(model));
        std::string tag, shouted;
        for (const unsigned char c : label) {
            tag += static_cast<char>(std::tolower(c));
            shouted += static_cast<char>(std::toupper(c));
        }
        const auto result = generate("out-" + tag, {"--model", shouted, "--variations", "1", "--seed", "7",
                                                    "--glitch", "0.9"});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(result.out.find("using " + label + " chop model."), std::string::npos) << result.out;
        auto loop = audio::loadWav((at("out-" + tag) / ("amen_s16_mqtry_" + tag + "01.wav")).string());
        EXPECT_FALSE(loop.pcmData.empty()) << label;
        loop.pcmData = original.pcmData;
        EXPECT_EQ(loop, original) << label;
    }
}

// Failed runs exit 1 with the last status on standard error (and, once the
// run has started, last on standard output too); argument errors exit 2
// with the usage before anything runs.
TEST_F(Cli, FailuresExitOneAndArgumentErrorsTwoWithoutWritingAnything) {
    copyLoops({"amen_s16.wav"});
    // Ten frames: a valid WAV too short to cut into 16 slices.
    const auto tiny = audio::buildWavFileData({1, 1, 44100, 88200, 2, 16, {}}, audio::Bytes(20, 0));
    std::ofstream(source() / "tiny.wav", std::ios::binary)
        .write(reinterpret_cast<const char*>(tiny.data()), static_cast<std::streamsize>(tiny.size()));
    std::ofstream(source() / "broken.wav") << "not a wave";
    std::ofstream(at("blocker")) << "a file where the folder should go";
    fs::create_directories(at("elsewhere"));
    fs::copy_file(source() / "amen_s16.wav", at("elsewhere/amen_s16.wav"));

    const std::string amen = "source/amen_s16.wav";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"generate", "--source", amen, "--slices", "2", "--output", "out"},
         "Slices must be >= 4 and versions >= 1.\n"},
        {{"generate", "--source", "source/tiny.wav", "--output", "out"},
         "Error: Input loop too short for 16 slices.\n"},
        {{"generate", "--source", "source/broken.wav", "--output", "out"}, "Error loading source: "},
        {{"generate", "--source", amen, "--output", "blocker/out"}, "Export failed: "},
        {{"generate", "--source", amen, "--mashup", "elsewhere/amen_s16.wav", "--output", "out"}, "marquetry-cli: "},
        {{"generate", "--source", amen, "--colour", "red", "--output", "out"}, "marquetry-cli: "},
        {{"generate", "--source", amen}, "marquetry-cli: "},
        {{"generate", "--source", amen, "--slices", "16x", "--output", "out"}, "marquetry-cli: "},
        {{"generate", "--source", amen, "--model", "Blender", "--output", "out"}, "marquetry-cli: "},
        {{"generate", "--source", amen, "--pick", "2,11", "--output", "out"}, "marquetry-cli: "},
        {{"generate", "--source", amen, "--join-fade", "51", "--output", "out"},
         "marquetry-cli: --join-fade expects 0 (off) or a whole number of milliseconds from 1 to 50, not '51'\n"},
        {{"generate", "--source", amen, "--join-fade", "-1", "--output", "out"}, "marquetry-cli: --join-fade "},
        {{"generate", "--source", amen, "--join-fade", "2.5", "--output", "out"}, "marquetry-cli: --join-fade "},
        {{"generate", "--source", "source/missing.wav", "--output", "out"}, "marquetry-cli: "},
        {{}, "marquetry-cli: "},
    };
    for (const auto& [arguments, errStart] : cases) {
        const auto result = run(arguments);
        SCOPED_TRACE(result.err);
        EXPECT_TRUE(result.err.starts_with(errStart));
        if (errStart.starts_with("marquetry-cli: ")) {
            EXPECT_EQ(result.exitCode, 2);
            EXPECT_EQ(result.out, "");
            EXPECT_NE(result.err.find("Usage:"), std::string::npos);
        } else {
            EXPECT_EQ(result.exitCode, 1);
            // A source that fails to load stops the run before any status is
            // printed; a run that started ends its output with the failure.
            const std::string failure = result.err.substr(0, result.err.find('\n') + 1);
            EXPECT_TRUE(result.out.empty() || result.out.ends_with(failure)) << result.out;
        }
    }
    EXPECT_FALSE(fs::exists(at("out"))) << "no folder may be made without an export";
    EXPECT_EQ(folderContents(source()).size(), 3u);
}

// A named pipe blocks whoever opens it for reading; the command line must
// not open the neighbours of the loop it was given at all.
TEST_F(Cli, NeighboursOfTheSourceAreNotRead) {
    copyLoops({"amen_s16.wav"});
    ASSERT_EQ(mkfifo((source() / "a_pipe.wav").c_str(), 0600), 0);
    limit = "timeout 60 ";
    const auto result = generate("out", {"--variations", "1"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

// A count whose output cannot fit is refused before the run, against the
// memory the machine has and, in a shell with a lowered address-space limit,
// against what that limit leaves.
TEST_F(Cli, VariationCountsBeyondMemoryAreRefusedBeforeTheRun) {
    copyLoops({"amen_s16.wav"});
    const auto huge = generate("out", {"--variations", "100000"});
    EXPECT_EQ(huge.exitCode, 2);
    EXPECT_TRUE(huge.err.starts_with("marquetry-cli: --variations 100000 of this loop would need about 30.9 GB of "
                                     "memory;"))
        << huge.err;
#if defined(MARQUETRY_SANITIZED)
    GTEST_SKIP() << "the sanitizers reserve more address space than the limit below allows";
#else
    limit = "ulimit -v 1000000 && ";
    const auto limited = generate("out", {"--variations", "5000"});
    EXPECT_EQ(limited.exitCode, 2);
    EXPECT_NE(limited.err.find("would need about 1.5 GB of memory;"), std::string::npos) << limited.err;
    EXPECT_EQ(generate("out", {"--variations", "20"}).exitCode, 0) << "a run that fits still runs";
#endif
    EXPECT_EQ(huge.out, "");
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

// A reader that stops early (`| head -1`) must not cost the export.
TEST_F(Cli, ExportsAllAfterItsOutputReaderHasGone) {
    copyLoops({"amen_s16.wav"});
    const std::string command = "cd " + shellQuoted(root_.string()) + " && { HOME=" + shellQuoted(home().string())
                                + " " + shellQuoted(MARQUETRY_CLI)
                                + " generate --source source/amen_s16.wav --output out; echo $? >status.txt; } | true";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(readText(at("status.txt")), "0\n");
    EXPECT_EQ(folderContents(at("out")).size(), 10u);
}

} // namespace
} // namespace marquetry::cli
