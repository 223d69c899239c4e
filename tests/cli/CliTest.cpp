// The command line in process: its arguments, refusals, manifests, replay
// and import; then the real program where only a process shows the fault
// (its streams and exit statuses, a signal, a memory limit, a read that
// blocks), with HOME pointed at an empty folder of its own.
#include "cli/Cli.hpp"
#include "cli/CliArguments.hpp"

#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "model/Sha256.hpp"

#include "support/TestFiles.hpp"
#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <atomic>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;
using audio::test::folderContents;
using audio::test::readText;

struct Outcome {
    int exitCode = -1;
    std::string out, err;
};

// A temporary folder with a source folder for real drum breaks.
class CliFixture : public ::testing::Test {
protected:
    CliFixture() { fs::create_directories(source()); }

    fs::path source() const { return root / "source"; }
    std::string at(const std::string& relative) const { return (root / relative).string(); }

    void copyLoops(std::initializer_list<const char*> names) const {
        for (const char* name : names)
            fs::copy_file(audio::test::testLoopPath(name), source() / name);
    }

    Outcome run(const std::vector<std::string>& arguments) const {
        std::ostringstream out, err;
        const int code = runCli(arguments, out, err);
        return {code, out.str(), err.str()};
    }

    const audio::test::TemporaryFolder temporary;
    const fs::path root = temporary.path;
};

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
        {{"generate", "--source", amen, "--slices", "4.5", "--output", out}, 2,
         "--slices expects a whole number, not '4.5'"},
        {{"generate", "--source", amen, "--slices", "3", "--output", out}, 2,
         "--slices expects a whole number from 4 to 128, not '3'"},
        {{"generate", "--source", amen, "--glitch", "nan", "--output", out}, 2,
         "--glitch expects a finite number, not 'nan'"},
        {{"generate", "--source", amen, "--model", "Blender", "--output", out}, 2,
         "--model expects one of Grid, Transient, Dice, Swarm, Glitch, Pivot, Interlock, Drift, Momentum, not "
         "'Blender'"},
        {{"generate", "--source", amen, "--pick", "2,11", "--output", out}, 2,
         "--pick 11 is beyond the 10 variation(s) to be generated"},
        {{"generate", "--source", at("source/missing.wav"), "--output", out}, 2,
         "cannot find the source file '" + at("source/missing.wav") + "'"},
        {{}, 2, "no command given"},
        {{"generate", "--source", amen, "--join-fade", "51", "--output", out}, 2,
         "--join-fade expects 0 (off) or a whole number of milliseconds from 1 to 50, not '51'"},
        {{"generate", "--source", amen, "--join-fade", "2.5", "--output", out}, 2,
         "--join-fade expects 0 (off) or a whole number of milliseconds from 1 to 50, not '2.5'"},
        {{"generate", "--source", amen, "--colour", "red", "--output", out}, 2, "unknown option '--colour'"},
        {{"generate", "--source", amen, "--fit", "squeeze", "--output", out}, 2,
         "--fit expects off, trim or stretch, not 'squeeze'"},
        {{"generate", "--source", amen, "--tempo", amen + "=1000", "--output", out}, 2,
         "--tempo expects FILE=BPM with a tempo from 20 to 999, not '" + amen + "=1000'"},
        // Nothing the run read is ever replaced, and nothing is written twice.
        {{"generate", "--source", amen, "--seed", "1", "--output", out, "--manifest", amen}, 1,
         "Export refused: amen_s16.wav is a source of this run.\n"},
        {{"generate", "--source", amen, "--seed", "1", "--output", out, "--manifest", out + "/amen_s16_mqtry_grid01.wav"},
         1, "Export refused: amen_s16_mqtry_grid01.wav would be written twice by this export.\n"},
    };
    for (const auto& [arguments, exitCode, message] : cases) {
        const Outcome result = run(arguments);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.exitCode, exitCode);
        if (exitCode == 2) {
            // One line says what is wrong, one where to read more.
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, "marquetry-cli: " + message + "\nRun 'marquetry-cli "
                                      + (arguments.empty() ? "" : "generate ") + "--help' for usage.\n");
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
    EXPECT_EQ(readText(source() / "amen_s16.wav"), readText(audio::test::testLoopPath("amen_s16.wav")));
}

TEST(CliArguments, GenerateTakesEveryOptionInEitherForm) {
    const auto parsed = parseArguments({"generate", "--source=a.wav", "--mashup", "b.wav", "--mashup=c.wav", "--slices",
                                        "8", "--variations=3", "--model", "pivot", "--seed", "x", "--glitch", "0.9",
                                        "--pick", "3,1,3", "--output", "~/out", "--manifest", "run.json"});
    ASSERT_TRUE(std::holds_alternative<CliArguments>(parsed)) << std::get<UsageError>(parsed).message;
    const GenerateOptions& options = std::get<CliArguments>(parsed).generate;
    const std::string here = fs::current_path().string();
    model::RunSettings expected;
    expected.selectedPath = here + "/a.wav";
    expected.mashupMode = true;
    expected.checkedPaths = {here + "/b.wav", here + "/c.wav"};
    expected.plan = {8, chop::ChopModel::pivot, 3, 0.9};
    expected.seedText = "x";
    expected.picks = {1, 3};
    expected.exportOptions.manifest = true;
    EXPECT_EQ(options.settings, expected);
    EXPECT_EQ(std::tuple(options.outputDir, options.manifestPath), std::tuple("~/out", "run.json"));

    for (const chop::ChopModel model : chop::allChopModels) {
        for (const auto change : {::tolower, ::toupper}) {
            std::string name(chop::label(model));
            for (char& c : name)
                c = static_cast<char>(change(static_cast<unsigned char>(c)));
            const auto chosen = parseArguments({"generate", "--source", "a.wav", "--model", name, "--output", "o"});
            EXPECT_EQ(std::get<CliArguments>(chosen).generate.settings.plan.chopModel, model) << name;
        }
    }
}

TEST_F(CliInProcess, HelpAndVersionGoToStandardOutput) {
    for (const auto& [arguments, usage] :
         {std::pair(std::vector<std::string>{"--help"}, usageText()),
          {{"generate", "--colour", "-h"}, usageText(CliArguments::Command::generate)},
          {{"info", "--help"}, usageText(CliArguments::Command::info)}}) {
        const Outcome help = run(arguments);
        EXPECT_EQ(std::tuple(help.exitCode, help.out, help.err), std::tuple(0, usage, ""));
    }
    EXPECT_NE(usageText(CliArguments::Command::generate).find("--join-fade MS"), std::string::npos);
    EXPECT_EQ(usageText(CliArguments::Command::info).find("--join-fade"), std::string::npos);
    EXPECT_EQ(run({"--version"}).out, "marquetry-cli " MARQUETRY_VERSION "\n");
}

std::string sha256(const std::string& bytes) {
    return model::sha256Hex(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

class Replay : public CliFixture {
protected:
    Replay() { copyLoops({"amen_s16.wav", "breakbeat_s16.wav"}); }

    // A Glitch mashup with a blank seed, two of five variations kept: the
    // seed, the pool and every treatment must all come back from the file.
    Outcome generateWithManifest() const {
        return run({"generate", "--source", at("source/amen_s16.wav"), "--mashup", at("source/amen_s16.wav"),
                    "--mashup", at("source/breakbeat_s16.wav"), "--model", "glitch", "--variations", "5",
                    "--glitch", "0.8", "--pick", "2,4", "--output", at("first"), "--manifest", at("run.json")});
    }
};

TEST_F(Replay, ManifestDescribesTheRunAndReplayWritesTheSameFiles) {
    const Outcome first = generateWithManifest();
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_NE(first.out.find("Generated 5 preview loop(s) from 2 source files using Glitch"), std::string::npos);
    const auto manifest = nlohmann::json::parse(readText(at("run.json")));
    const auto files = folderContents(at("first"));
    ASSERT_EQ(files.size(), 2u);

    EXPECT_EQ(manifest["settings"]["seedText"], "");
    EXPECT_NE(first.err.find("Seed of this run: " + std::to_string(manifest["settings"]["seed"].get<std::uint64_t>())
                             + " (no seed was given, so the clock chose it)"),
              std::string::npos)
        << first.err;
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    ASSERT_EQ(manifest["sources"].size(), 2u);
    for (const auto& source : manifest["sources"])
        EXPECT_EQ(source["sha256"], sha256(readText(source["path"].get<std::string>())));

    ASSERT_EQ(manifest["variations"].size(), 2u);
    for (const auto& variation : manifest["variations"]) {
        const std::string bytes = files.at(variation["name"].get<std::string>());
        EXPECT_EQ(variation["sha256"], sha256(bytes));
        EXPECT_EQ(variation["frames"].get<std::size_t>(), (bytes.size() - 44) / 4);
        std::int64_t next = 0;
        for (const auto& placement : variation["placements"]) {
            EXPECT_EQ(placement["start"].get<std::int64_t>(), next);
            next += placement["frames"].get<std::int64_t>();
            const auto& source = manifest["sources"][placement["source"].get<std::size_t>()];
            EXPECT_LE(placement["sourceStart"].get<std::int64_t>() + placement["sourceFrames"].get<std::int64_t>(),
                      source["frames"].get<std::int64_t>());
        }
        EXPECT_EQ(next, variation["frames"].get<std::int64_t>());
    }

    const Outcome again = run({"replay", at("run.json"), "--output", at("again")});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(folderContents(at("again")), files);
}

// Each sound option is part of the run: recorded, replayed to the same
// bytes, and absent in a manifest from before it existed, which replays
// without it.
TEST_F(Replay, SoundOptionsAreRecordedAndReplayedAndAbsentMeansOff) {
    copyLoops({"amen_u8.wav"});
    const auto generate = [&](const std::string& folder, std::vector<std::string> extra) {
        std::vector<std::string> arguments{"generate", "--source", at("source/amen_s16.wav"), "--seed", "9",
                                           "--variations", "2", "--output", at(folder), "--manifest",
                                           at(folder + ".json")};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return run(arguments);
    };
    const std::string mashup = at("source/amen_u8.wav");
    ASSERT_EQ(generate("plain", {}).exitCode, 0);
    const Outcome rawMashup = generate("raw", {"--mashup", mashup, "--mashup", at("source/amen_s16.wav")});
    ASSERT_EQ(rawMashup.exitCode, 0);
    EXPECT_NE(rawMashup.err.find("Warning: amen_u8.wav is 8-bit stereo 44100 Hz but amen_s16.wav is 16-bit stereo "
                                 "44100 Hz: its slices are pooled as raw bytes and will sound wrong. Use "
                                 "--match-formats to convert the loops to one format.\n"),
              std::string::npos)
        << rawMashup.err;
    const std::tuple<std::string, std::vector<std::string>, const char*, nlohmann::json> options[] = {
        {"faded", {"--join-fade", "5"}, "joinFadeMs", 5},
        {"trimmed", {"--fit", "trim"}, "fit", "trim"},
        {"stretched", {"--fit", "stretch"}, "fit", "stretch"},
        {"matched", {"--mashup", mashup, "--mashup", at("source/amen_s16.wav"), "--match-formats"}, "matchFormats",
         true},
    };
    for (const auto& [folder, extra, key, value] : options) {
        SCOPED_TRACE(folder);
        const Outcome result = generate(folder, extra);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err.find("Warning"), std::string::npos);
        const auto manifest = nlohmann::json::parse(readText(at(folder + ".json")));
        EXPECT_EQ(manifest["settings"][key], value);
        EXPECT_NE(folderContents(at(folder)), folderContents(at(folder == "matched" ? "raw" : "plain")));

        ASSERT_EQ(run({"replay", at(folder + ".json"), "--output", at(folder + "-again")}).exitCode, 0);
        EXPECT_EQ(folderContents(at(folder + "-again")), folderContents(at(folder)));

        if (folder == "matched")
            continue;
        // A manifest from before the option existed: the plain run's, without it.
        auto old = nlohmann::json::parse(readText(at("plain.json")));
        old["settings"].erase(key);
        std::ofstream(at(folder + "-old.json")) << old.dump();
        ASSERT_EQ(run({"replay", at(folder + "-old.json"), "--output", at(folder + "-old")}).exitCode, 0);
        EXPECT_EQ(folderContents(at(folder + "-old")), folderContents(at("plain")));
    }
}

// The tags' tempo (here the user's, which the run itself never saw) and the
// kit are recorded too, and a replay writes the same tagged files and kit.
TEST_F(Replay, ExportOptionsAreRecordedAndReplayedWithTheTagTempo) {
    const std::string amen = at("source/amen_s16.wav");
    const Outcome first = run({"generate", "--source", amen, "--seed", "3", "--variations", "3", "--pick", "1,3",
                               "--tempo", amen + "=141.5", "--meter", amen + "=6/8", "--tags", "--kit", at("first/kit"), "--output",
                               at("first"), "--manifest", at("run.json")});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    const auto manifest = nlohmann::json::parse(readText(at("run.json")));
    EXPECT_EQ(manifest["export"],
              nlohmann::json({{"tags", true}, {"kit", true}, {"tagTempo", 141.5}, {"tagBeatsPerBar", 3}}));
    EXPECT_EQ(manifest["settings"]["tempoOverrides"], nlohmann::json::object());

    const Outcome again = run({"replay", at("run.json"), "--output", at("again")});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(folderContents(at("again")), folderContents(at("first")));
    EXPECT_EQ(folderContents(at("again/kit")), folderContents(at("first/kit")));
    EXPECT_TRUE(fs::exists(at("again/kit/amen_s16_mqtry_grid03.mid")));
}

TEST_F(Replay, RefusesAChangedSourceOrAnUnusableManifestAndWritesNothing) {
    ASSERT_EQ(generateWithManifest().exitCode, 0);
    const std::string good = readText(at("run.json"));
    const auto write = [&](const std::string& name, const std::string& text) {
        std::ofstream(root / name, std::ios::binary) << text;
        return at(name);
    };
    std::string wrongType = good;
    wrongType.replace(wrongType.find("\"slices\": 16"), 12, "\"slices\": \"16\"");
    std::string hugeSeed = good;
    hugeSeed.replace(hugeSeed.find("\"seed\": "), 8, "\"seed\": -");
    auto noTagTempo = nlohmann::json::parse(good);
    noTagTempo["export"] = {{"tags", true}};

    const std::pair<std::string, std::string> cases[] = {
        {write("notjson.json", "{\"format\": "), "Replay refused: The manifest is not usable: it is not valid JSON."},
        {write("other.json", "{\"format\": \"something else\"}"),
         "Replay refused: The manifest is not usable: it is not a Marquetry manifest."},
        {write("wrongtype.json", wrongType),
         "Replay refused: The manifest is not usable: \"slices\" in \"settings\" is not a whole number."},
        {write("negative.json", hugeSeed),
         "Replay refused: The manifest is not usable: \"seed\" in \"settings\" is not a whole number from 0."},
        {write("notempo.json", noTagTempo.dump()),
         "Replay refused: The manifest is not usable: \"export\" has no \"tagTempo\"."},
        {at("missing.json"), "Replay refused: " + at("missing.json") + ": No such file or directory."},
    };
    for (const auto& [manifest, message] : cases) {
        const Outcome refused = run({"replay", manifest, "--output", at("out")});
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_EQ(refused.err, message + " Nothing was written.\n");
    }

    // Past its size limit a manifest is refused unread (a sparse file: no
    // disk and no memory spent).
    fs::resize_file(write("huge.json", ""), 100'000'000);
    const Outcome huge = run({"replay", at("huge.json"), "--output", at("out")});
    EXPECT_EQ(huge.err, "Replay refused: " + at("huge.json")
                            + " is 100.0 MB, more than the 64.0 MB a manifest can be. Nothing was written.\n");

    std::ofstream(root / "source" / "breakbeat_s16.wav", std::ios::app) << "x";
    const Outcome changed = run({"replay", at("run.json"), "--output", at("out")});
    EXPECT_EQ(changed.exitCode, 1);
    EXPECT_EQ(changed.err, "Replay refused: " + at("source/breakbeat_s16.wav")
                               + " has changed since the manifest was written. Nothing was written.\n");
    EXPECT_FALSE(fs::exists(at("out")));
}

// A source swapped for another loop while replays run: each replay either
// refuses or writes exactly the files the manifest records, never others.
TEST_F(Replay, ASourceSwappedDuringReplaysNeverYieldsOtherBytes) {
    ASSERT_EQ(generateWithManifest().exitCode, 0);
    const auto manifest = nlohmann::json::parse(readText(at("run.json")));
    const std::string amen = at("source/amen_s16.wav");
    fs::copy_file(amen, at("amen.keep"));
    fs::copy_file(at("source/breakbeat_s16.wav"), at("breakbeat.keep"));
    std::atomic<bool> done{false};
    std::thread swapper([&] {
        for (int i = 0; !done; ++i) {
            fs::copy_file(at(i % 2 == 0 ? "breakbeat.keep" : "amen.keep"), at("swap.tmp"),
                          fs::copy_options::overwrite_existing);
            fs::rename(at("swap.tmp"), amen);
        }
    });
    int refused = 0;
    for (int i = 0; i < 12; ++i) {
        const std::string out = at("out" + std::to_string(i));
        const Outcome replay = run({"replay", at("run.json"), "--output", out});
        if (replay.exitCode != 0) {
            ++refused;
            EXPECT_FALSE(fs::exists(out) && !fs::is_empty(out)) << replay.err;
            continue;
        }
        for (const auto& variation : manifest["variations"])
            EXPECT_EQ(sha256(readText(out + "/" + variation["name"].get<std::string>())), variation["sha256"]);
    }
    done = true;
    swapper.join();
    EXPECT_GT(refused, 0) << "the swap was never seen";
}

// One line per file, refusals included, and exit 1 when any was refused.
TEST_F(CliInProcess, KeepExistingWritesBesideEarlierFilesAndReplaceOverwrites) {
    copyLoops({"amen_s16.wav"});
    const auto generate = [&](std::vector<std::string> extra) {
        std::vector<std::string> arguments{"generate", "--source", at("source/amen_s16.wav"), "--seed", "3",
                                           "--variations", "2", "--output", at("out")};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return run(arguments);
    };
    ASSERT_EQ(generate({}).exitCode, 0);
    const auto first = folderContents(at("out"));
    const auto kept = generate({"--keep-existing"});
    ASSERT_EQ(kept.exitCode, 0) << kept.err;
    EXPECT_NE(kept.out.find("Exported 2 loop(s) to " + at("out") + "\n"), std::string::npos) << kept.out;
    auto expected = first;
    for (const auto& [name, bytes] : first)
        expected[name.substr(0, name.size() - 4) + "-2.wav"] = bytes;
    EXPECT_EQ(folderContents(at("out")), expected);
    ASSERT_EQ(generate({}).exitCode, 0);
    EXPECT_EQ(folderContents(at("out")), expected) << "replacing writes over the same names";
}

// --tags changes only the files' chunks, never their samples; --kit writes
// the kit beside them and nothing else; an empty --kit is refused.
TEST_F(CliInProcess, TagsAndKitAddToThePlainExport) {
    copyLoops({"amen_s16.wav"});
    const auto generate = [&](const std::string& folder, std::vector<std::string> extra) {
        std::vector<std::string> arguments{"generate", "--source", at("source/amen_s16.wav"), "--seed", "5",
                                           "--variations", "2", "--model", "dice", "--output", at(folder)};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return run(arguments);
    };
    ASSERT_EQ(generate("plain", {}).exitCode, 0);
    const Outcome tagged = generate("tagged", {"--tags", "--kit", at("kit")});
    ASSERT_EQ(tagged.exitCode, 0) << tagged.err;
    const auto plain = folderContents(at("plain"));
    ASSERT_EQ(plain.size(), 2u);
    for (const auto& [name, bytes] : plain) {
        const std::string file = readText(root / "tagged" / name);
        EXPECT_GT(file.size(), bytes.size()) << name;
        EXPECT_EQ(audio::loadWav(at("tagged/" + name)).pcmData, audio::loadWav(at("plain/" + name)).pcmData);
    }
    EXPECT_TRUE(fs::exists(at("kit/amen_s16_mqtry_dice.sfz")));
    EXPECT_TRUE(fs::exists(at("kit/amen_s16_mqtry_dice02.mid")));
    EXPECT_TRUE(fs::exists(at("kit/amen_s16_mqtry_dice_slice01.wav")));
    EXPECT_EQ(generate("x", {"--kit", ""}).exitCode, 2);
}

TEST_F(CliInProcess, ImportConvertsWhatItCanAndSaysWhyForTheRest) {
    const std::string flac = audio::test::testLoopPath("import/amen_s16.flac");
    std::ofstream(root / "notes.txt") << "not audio";
    const Outcome result = run({"import", flac, at("notes.txt"), flac, "--to", at("source")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.out.starts_with(at("source/amen_s16.wav") + "\n" + at("notes.txt") + ": Not an audio file"))
        << result.out;
    EXPECT_TRUE(result.out.ends_with(at("source/amen_s16-2.wav") + "\n")) << result.out;
    EXPECT_EQ(run({"import", flac, "--to", at("new/folder")}).out, at("new/folder/amen_s16.wav") + "\n");
}

TEST_F(CliInProcess, InfoDescribesEachFileAndExitsOneWhenTheReaderRefusesAny) {
    copyLoops({"breakbeat_s16.wav", "amen_f32.wav"});
    std::ofstream(root / "notes.txt") << "not audio";
    const Outcome text = run({"info", at("source/breakbeat_s16.wav"), at("notes.txt")});
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_EQ(text.out, at("source/breakbeat_s16.wav")
                            + ": PCM 16-bit, 2 ch, 44100 Hz, 84000 frames, 1.905 s, 126.0 BPM \u00b7 4/4 \u00b7 1 bar\n"
                            + at("notes.txt") + ": WAV file is too small.\n");

    const Outcome json = run({"info", "--json", at("source/amen_f32.wav")});
    EXPECT_EQ(json.exitCode, 0);
    auto expected = nlohmann::json::parse(R"([{"file": "", "frames": 77321, "sampleRate": 44100, "channels": 2,
        "bitsPerSample": 32, "audioFormat": 3, "seconds": 0, "bpm": 136.9, "bars": 1.0, "beatsPerBar": 4}])");
    expected[0]["file"] = at("source/amen_f32.wav");
    expected[0]["seconds"] = 77321.0 / 44100;
    EXPECT_EQ(nlohmann::json::parse(json.out), expected);

    // A name that is not UTF-8 still gives valid JSON; output that cannot
    // be written fails the command.
    fs::copy_file(at("source/amen_f32.wav"), at("source/bad\xff.wav"));
    const Outcome bad = run({"info", "--json", at("source/bad\xff.wav")});
    EXPECT_EQ(bad.exitCode, 0);
    EXPECT_TRUE(nlohmann::json::accept(bad.out)) << bad.out;
    std::ostringstream closed, err;
    closed.setstate(std::ios::badbit);
    EXPECT_EQ(runCli({"info", at("source/amen_f32.wav")}, closed, err), 1);
    EXPECT_EQ(err.str(), "marquetry-cli: cannot write to standard output\n");
}

// The real program, for what only a process shows.

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
    const auto failed = generate("out", {"--variations", "0"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.err, "Slices must be >= 4 and versions >= 1.\n");
    EXPECT_TRUE(failed.out.ends_with(failed.err)) << failed.out;
    const auto refused = generate("out", {"--slices", "16x"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "marquetry-cli: --slices expects a whole number, not '16x'\n"
                           "Run 'marquetry-cli generate --help' for usage.\n");
    EXPECT_FALSE(fs::exists(root / "out"));
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

// A count whose output cannot fit is refused before anything large is made,
// against the memory the machine has and, in a shell with a lowered
// address-space limit, against what that limit leaves.
TEST_F(Cli, VariationCountsBeyondMemoryAreRefusedBeforeTheRun) {
    copyLoops({"amen_s16.wav"});
    const auto huge = generate("out", {"--variations", "100000"});
    EXPECT_EQ(huge.exitCode, 1);
    EXPECT_TRUE(huge.err.starts_with("Error: This run needs 31.7 GB of memory, but only ")) << huge.err;
    EXPECT_FALSE(fs::exists(root / "out"));
#if defined(MARQUETRY_SANITIZED)
    GTEST_SKIP() << "the sanitizers reserve more address space than the limit below allows";
#else
    limit = "ulimit -v 1000000 && ";
    const auto limited = generate("out", {"--variations", "5000"});
    EXPECT_EQ(limited.exitCode, 1);
    EXPECT_NE(limited.err.find("This run needs 1.6 GB of memory"), std::string::npos) << limited.err;
    EXPECT_EQ(generate("out", {"--variations", "20"}).exitCode, 0) << "a run that fits still runs";
#endif
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
