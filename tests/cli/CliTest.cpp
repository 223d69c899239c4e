// The command line: its arguments and refusals in process, and the real
// program where only a process shows the fault (its streams and exit
// statuses, a signal, a memory limit, a read that blocks), with HOME pointed
// at an empty folder of its own.
#include "CliFixture.hpp"

#include "audio/WavWriter.hpp"
#include "cli/CliArguments.hpp"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <map>

#include <sys/stat.h>
#include <sys/wait.h>

namespace marquetry::cli {
namespace {

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

class Cli : public CliFixture {
protected:
    Cli() { fs::create_directories(home()); }
    ~Cli() override {
        // Neither default folders nor settings: the user's home stays untouched.
        EXPECT_TRUE(fs::is_empty(home())) << "the command line wrote into HOME";
    }

    fs::path home() const { return root / "home"; }

    // Runs the real program in the temporary folder, so relative paths land there.
    Outcome runProgram(const std::vector<std::string>& arguments) const {
        std::string command = "cd " + shellQuoted(root.string()) + " && " + limit + "env HOME="
                              + shellQuoted(home().string()) + " " + shellQuoted(MARQUETRY_CLI);
        // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict)
        // about a literal + string temporary here.
        for (const std::string& argument : arguments)
            command.append(" ").append(shellQuoted(argument));
        command.append(" >stdout.txt 2>stderr.txt");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(root / "stdout.txt"),
                readText(root / "stderr.txt")};
    }

    // Generates from source/amen_s16.wav into `output` with further arguments.
    Outcome generate(const std::string& output, std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"generate", "--source", "source/amen_s16.wav", "--output", output});
        return runProgram(more);
    }

    std::string limit; ///< what the shell runs the program under, such as "ulimit -v N && " or "timeout N "
};

TEST_F(Cli, SameSeedRepeatsTheFilesAndPickExportsASubset) {
    copyLoops({"amen_s16.wav"});
    const auto first = generate("first", {"--seed", "42"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out, "Generating previews...\n"
                         "Generated 10 preview loop(s) from 1 source file using Grid chop model.\n"
                         "Exported 10 loop(s) to first\n");
    EXPECT_EQ(first.err, "Seed of this run: 42\n");
    ASSERT_EQ(runProgram({"generate", "--source=source/../source/amen_s16.wav", "--seed=42", "--output=again"}).exitCode,
              0);

    const auto files = folderContents(root / "first");
    ASSERT_EQ(files.size(), 10u);
    EXPECT_TRUE(files.contains("amen_s16_mqtry_grid01.wav") && files.contains("amen_s16_mqtry_grid10.wav"));
    EXPECT_EQ(folderContents(root / "again"), files);
    EXPECT_EQ(folderContents(source()).size(), 1u) << "nothing may be written beside the sources";

    const auto picked = generate("picked", {"--seed", "42", "--pick", "3,1"});
    EXPECT_NE(picked.out.find("Exported 2 loop(s) to picked"), std::string::npos) << picked.out;
    const std::map<std::string, std::string> pickedFiles{
        {"amen_s16_mqtry_grid01.wav", files.at("amen_s16_mqtry_grid01.wav")},
        {"amen_s16_mqtry_grid03.wav", files.at("amen_s16_mqtry_grid03.wav")}};
    EXPECT_EQ(folderContents(root / "picked"), pickedFiles);
}

// A failed run exits 1 with its status on standard error and last on
// standard output; an argument error exits 2 with the usage before anything
// runs.
TEST_F(Cli, AFailedRunExitsOneAndAnArgumentErrorTwo) {
    copyLoops({"amen_s16.wav"});
    const auto failed = generate("out", {"--slices", "2"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.err, "Slices must be >= 4 and versions >= 1.\n");
    EXPECT_TRUE(failed.out.ends_with(failed.err)) << failed.out;
    const auto refused = generate("out", {"--colour", "red"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_TRUE(refused.err.starts_with("marquetry-cli: The following arguments were not expected: red --colour\n\n"
                                        "Usage:\n"))
        << refused.err;
    EXPECT_FALSE(fs::exists(root / "out"));
}

using CliInProcess = CliFixture;

// Every refusal in its own words; none writes a file.
TEST_F(CliInProcess, RefusalsSayWhatIsWrongAndExitWithTheirStatus) {
    copyLoops({"amen_s16.wav"});
    // Ten frames: a valid WAV too short to cut into 16 slices.
    audio::test::writeFile(at("source/tiny.wav"),
                           audio::buildWavFileData(audio::test::record(1, 1, 2, 16), audio::Bytes(20, 0)));
    std::ofstream(source() / "broken.wav") << "not a wave";
    std::ofstream(root / "blocker") << "a file where the folder should go";
    fs::create_directories(root / "elsewhere");

    const std::string amen = at("source/amen_s16.wav");
    const std::string out = at("out");
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{"generate", "--source", amen, "--variations", "0", "--output", out}, 1,
         "Slices must be >= 4 and versions >= 1.\n"},
        {{"generate", "--source", at("source/tiny.wav"), "--output", out}, 1,
         "Error: Input loop too short for 16 slices.\n"},
        {{"generate", "--source", at("source/broken.wav"), "--output", out}, 1,
         "Error loading source: WAV file is too small.\n"},
        {{"generate", "--source", amen, "--output", at("blocker/out")}, 1, "Export failed: "},
        {{"generate", "--source", amen, "--mashup", at("elsewhere/a.wav"), "--output", out}, 2,
         "--mashup file '" + at("elsewhere/a.wav") + "' is not in the source folder '" + source().string() + "'"},
        {{"generate", "--source", amen}, 2, "--output is required"},
        {{"generate", "--source", amen, "--slices", "16x", "--output", out}, 2,
         "--slices expects a whole number, not '16x'"},
        {{"generate", "--source", amen, "--glitch", "nan", "--output", out}, 2,
         "--glitch expects a finite number, not 'nan'"},
        {{"generate", "--source", amen, "--model", "Blender", "--output", out}, 2,
         "--model expects one of Grid, Transient, Dice, Swarm, Glitch, Pivot, Interlock, Drift, Momentum, not "
         "'Blender'"},
        {{"generate", "--source", amen, "--pick", "2,11", "--output", out}, 2,
         "--pick 11 is beyond the 10 variation(s) to be generated"},
        {{"generate", "--source", at("source/missing.wav"), "--output", out}, 2,
         "cannot find the source file '" + at("source/missing.wav") + "'"},
        {{"replay", "--output", out}, 2, "manifest is required"},
        {{"import", amen}, 2, "--to is required"},
        {{}, 2, "no command given"},
    };
    for (const auto& [arguments, exitCode, message] : cases) {
        const Outcome result = run(arguments);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.exitCode, exitCode);
        if (exitCode == 2) {
            EXPECT_EQ(result.out, "");
            EXPECT_TRUE(result.err.starts_with("marquetry-cli: " + message + "\n\nUsage:\n"));
        } else {
            EXPECT_TRUE(result.err.starts_with(message));
            // A source that fails to load stops the run before any status is
            // printed; a run that started ends its output with the failure.
            const std::string failure = result.err.substr(0, result.err.find('\n') + 1);
            EXPECT_TRUE(result.out.empty() || result.out.ends_with(failure)) << result.out;
        }
    }
    EXPECT_FALSE(fs::exists(out)) << "no folder may be made without an export";
    EXPECT_EQ(folderContents(source()).size(), 3u);
}

TEST(CliArguments, GenerateTakesEveryOptionInEitherForm) {
    const auto parsed = parseArguments({"generate", "--source=a.wav", "--mashup", "b.wav", "--mashup=c.wav", "--slices",
                                        "8", "--variations=3", "--model", "pivot", "--seed", "x", "--glitch", "0.9",
                                        "--pick", "3,1,3", "--output", "~/out", "--manifest", "run.json"});
    ASSERT_TRUE(std::holds_alternative<CliArguments>(parsed)) << std::get<std::string>(parsed);
    const GenerateOptions& options = std::get<CliArguments>(parsed).generate;
    const std::string here = fs::current_path().string();
    EXPECT_EQ(options.sourceFile, here + "/a.wav");
    EXPECT_EQ(options.mashupFiles, (std::vector<std::string>{here + "/b.wav", here + "/c.wav"}));
    EXPECT_EQ(std::tuple(options.slices, options.versions, options.chopModel, options.seedText, options.glitchAmount),
              std::tuple(8, 3, chop::ChopModel::pivot, "x", 0.9));
    EXPECT_EQ(std::tuple(options.outputDir, options.picks, options.manifestPath),
              std::tuple("~/out", std::vector<std::int64_t>{1, 3}, "run.json"));

    for (const chop::ChopModel model : chop::allChopModels) {
        for (const auto change : {::tolower, ::toupper}) {
            std::string name(chop::label(model));
            for (char& c : name)
                c = static_cast<char>(change(static_cast<unsigned char>(c)));
            const auto chosen = parseArguments({"generate", "--source", "a.wav", "--model", name, "--output", "o"});
            EXPECT_EQ(std::get<CliArguments>(chosen).generate.chopModel, model) << name;
        }
    }
}

TEST_F(CliInProcess, HelpAndVersionGoToStandardOutput) {
    for (const auto& arguments : {std::vector<std::string>{"--help"}, {"generate", "--colour", "-h"}}) {
        const Outcome help = run(arguments);
        EXPECT_EQ(std::tuple(help.exitCode, help.out, help.err), std::tuple(0, usageText(), ""));
    }
    EXPECT_EQ(run({"--version"}).out, "marquetry-cli " MARQUETRY_VERSION "\n");
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

// A reader that stops early (`| head -1`) must not cost the export.
TEST_F(Cli, ExportsAllAfterItsOutputReaderHasGone) {
    copyLoops({"amen_s16.wav"});
    const std::string command = "cd " + shellQuoted(root.string()) + " && { HOME=" + shellQuoted(home().string())
                                + " " + shellQuoted(MARQUETRY_CLI)
                                + " generate --source source/amen_s16.wav --output out; echo $? >status.txt; } | true";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(readText(root / "status.txt"), "0\n");
    EXPECT_EQ(folderContents(root / "out").size(), 10u);
}

} // namespace
} // namespace marquetry::cli
