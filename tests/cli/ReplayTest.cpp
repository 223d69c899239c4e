// Manifests and replay, in process: a run described, then run again from its
// description to the same bytes, and refused when its sources moved on.
#include "CliFixture.hpp"

#include "model/Sha256.hpp"

#include <nlohmann/json.hpp>

#include <fstream>

namespace marquetry::cli {
namespace {

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

    const std::pair<std::string, std::string> cases[] = {
        {write("notjson.json", "{\"format\": "), "Replay refused: The manifest is not usable: it is not valid JSON."},
        {write("other.json", "{\"format\": \"something else\"}"),
         "Replay refused: The manifest is not usable: it is not a Marquetry manifest."},
        {write("wrongtype.json", wrongType),
         "Replay refused: The manifest is not usable: \"slices\" in \"settings\" is not a whole number."},
        {write("negative.json", hugeSeed),
         "Replay refused: The manifest is not usable: \"seed\" in \"settings\" is not a whole number from 0."},
        {at("missing.json"), "Replay refused: " + at("missing.json") + ": No such file or directory."},
    };
    for (const auto& [manifest, message] : cases) {
        const Outcome refused = run({"replay", manifest, "--output", at("out")});
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_EQ(refused.err, message + " Nothing was written.\n");
    }

    std::ofstream(root / "source" / "breakbeat_s16.wav", std::ios::app) << "x";
    const Outcome changed = run({"replay", at("run.json"), "--output", at("out")});
    EXPECT_EQ(changed.exitCode, 1);
    EXPECT_EQ(changed.err, "Replay refused: " + at("source/breakbeat_s16.wav")
                               + " has changed since the manifest was written. Nothing was written.\n");
    EXPECT_FALSE(fs::exists(at("out")));
}

// One line per file, refusals included, and exit 1 when any was refused.
TEST_F(Replay, ImportConvertsWhatItCanAndSaysWhyForTheRest) {
    const std::string flac = "/usr/share/sonic-pi/samples/loop_amen.flac";
    std::ofstream(root / "notes.txt") << "not audio";
    const Outcome result = run({"import", flac, at("notes.txt"), flac, "--to", at("source")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.out.starts_with(at("source/loop_amen.wav") + "\n" + at("notes.txt") + ": Not an audio file"))
        << result.out;
    EXPECT_TRUE(result.out.ends_with(at("source/loop_amen-2.wav") + "\n")) << result.out;
    EXPECT_EQ(run({"import", flac, "--to", at("new/folder")}).out, at("new/folder/loop_amen.wav") + "\n");
}

} // namespace
} // namespace marquetry::cli
