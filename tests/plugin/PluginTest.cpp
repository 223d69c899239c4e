// The plugin as a host loads it: the LV2 bundle through lilv, checked
// against what the command line exports from the same settings.
#include "plugin/Lv2Host.hpp"

#include "audio/FormatConversion.hpp"
#include "audio/WavReader.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/Generation.hpp"
#include "plugin/PreparedRun.hpp"
#include "support/TestFiles.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

namespace marquetry::plugin {
namespace {

using audio::test::TemporaryFolder;
using test::Lv2Host;

constexpr const char* uri = "urn:marquetry:player";
constexpr std::uint32_t blockFrames = 64;

std::string loopPath(const std::string& name) {
    return std::string(MARQUETRY_TEST_LOOPS_DIR) + "/" + name;
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

struct Settings {
    std::string loop;
    chop::ChopModel model = chop::ChopModel::grid;
    int slices = 16;
    int variations = 4;
    std::string seed = "170";
    int joinFadeMs = 0;
};

std::string cliName(chop::ChopModel model) {
    std::string name(chop::label(model));
    for (char& c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

// The command line's export of `settings` into `folder`, with a kit.
void exportWithCli(const Settings& settings, const std::string& folder) {
    const std::string command = shellQuoted(MARQUETRY_CLI) + " generate --source " + shellQuoted(loopPath(settings.loop))
                                + " --model " + cliName(settings.model) + " --slices " + std::to_string(settings.slices)
                                + " --variations " + std::to_string(settings.variations) + " --seed " + settings.seed
                                + (settings.joinFadeMs > 0 ? " --join-fade " + std::to_string(settings.joinFadeMs) : "")
                                + " --output " + shellQuoted(folder) + " --kit " + shellQuoted(folder + "/kit")
                                + " > /dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// A WAV file as interleaved float stereo, the way the plugin plays it.
std::vector<float> stereoFloats(const std::string& path) {
    const audio::WavData wav = audio::loadWav(path);
    const std::vector<float> samples = audio::toFloat(wav, wav.pcmData);
    if (wav.channels == 2)
        return samples;
    std::vector<float> stereo;
    for (const float sample : samples)
        stereo.insert(stereo.end(), {sample, sample});
    return stereo;
}

std::string fileEndingWith(const std::string& folder, const std::string& ending) {
    for (const std::string& name : audio::test::namesIn(folder))
        if (name.size() >= ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0)
            return folder + "/" + name;
    return {};
}

double loopBpm(const std::string& loop) {
    return chop::estimateTempo(audio::loadWav(loopPath(loop)))->bpm;
}

std::unique_ptr<Lv2Host> readyHost(const Settings& settings, double sampleRate = 44100) {
    auto host = std::make_unique<Lv2Host>(MARQUETRY_LV2_BUNDLE, uri, sampleRate, blockFrames);
    host->restoreState({{"loop", loopPath(settings.loop)}, {"seed", settings.seed}});
    host->setControl("model", static_cast<float>(settings.model));
    host->setControl("slices", static_cast<float>(settings.slices));
    host->setControl("variations", static_cast<float>(settings.variations));
    host->setControl("join_fade_ms", static_cast<float>(settings.joinFadeMs));
    EXPECT_TRUE(host->waitWhile("status", static_cast<float>(Status::loading))) << "no run after ten seconds";
    return host;
}

const std::vector<Settings> runs = {
    {"amen_s16.wav", chop::ChopModel::grid, 16, 4},
    {"breakbeat_s16.wav", chop::ChopModel::glitch, 8, 3, "42", 10},
    {"amen_mono_s16.wav", chop::ChopModel::momentum, 32, 2, "7"},
    {"amen_f32.wav", chop::ChopModel::transient, 12, 2, "99"},
};

TEST(Plugin, FollowsAtTheLoopsTempoWithTheCommandLinesExportSampleForSampleOverTwoPasses) {
    for (const Settings& settings : runs) {
        SCOPED_TRACE(settings.loop + " " + cliName(settings.model));
        const TemporaryFolder folder;
        exportWithCli(settings, folder.path);
        const std::vector<float> expected =
            stereoFloats(folder.path + "/" + model::variationName(settings.loop, settings.model, settings.variations));
        ASSERT_FALSE(expected.empty());
        const auto host = readyHost(settings);
        host->setControl("variation", static_cast<float>(settings.variations));
        const std::size_t frames = expected.size() / 2;
        const Lv2Host::Audio audio = host->render(static_cast<std::int64_t>(2 * frames), loopBpm(settings.loop));
        std::size_t wrong = 0;
        for (std::size_t f = 0; f < 2 * frames; ++f)
            wrong += audio.left[f] != expected[2 * (f % frames)] || audio.right[f] != expected[2 * (f % frames) + 1];
        EXPECT_EQ(wrong, 0u) << "of " << 2 * frames << " frames";
    }
}

TEST(Plugin, PlaysSliceKOfTheKitOnNote36PlusKAtTheNotesFrameScaledByVelocity) {
    const Settings settings = runs[1];
    const TemporaryFolder folder;
    exportWithCli(settings, folder.path);
    const auto host = readyHost(settings);
    host->setControl("follow", 0);
    struct Case {
        int slice; // from 1, as the kit names it
        std::uint8_t velocity;
    };
    for (const Case c : {Case{1, 127}, Case{2, 64}, Case{5, 1}}) {
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, "_slice%02d.wav", c.slice);
        const std::vector<float> slice = stereoFloats(fileEndingWith(folder.path + "/kit", suffix));
        ASSERT_FALSE(slice.empty()) << suffix;
        const std::int64_t at = 1000 + c.slice;
        const auto frames = static_cast<std::int64_t>(slice.size() / 2);
        const Lv2Host::Audio audio =
            host->render(at + frames + 100, 0, {{at, static_cast<std::uint8_t>(35 + c.slice), c.velocity}});
        const float gain = static_cast<float>(c.velocity) / 127.0f;
        std::size_t wrong = 0;
        for (std::int64_t f = 0; f < at + frames + 100; ++f) {
            const bool sounding = f >= at && f < at + frames;
            const auto i = static_cast<std::size_t>(f - at);
            const float left = sounding ? slice[2 * i] * gain : 0.0f;
            const float right = sounding ? slice[2 * i + 1] * gain : 0.0f;
            wrong += audio.left[static_cast<std::size_t>(f)] != left || audio.right[static_cast<std::size_t>(f)] != right;
        }
        EXPECT_EQ(wrong, 0u) << "slice " << c.slice << " at velocity " << int{c.velocity};
    }
}

TEST(Plugin, AtTwiceTheLoopsTempoStartsEveryPlacementAtHalfItsFrame) {
    const Settings settings = runs[0];
    model::RunSettings request;
    request.selectedPath = loopPath(settings.loop);
    request.seedText = settings.seed;
    request.plan.sliceCount = settings.slices;
    request.plan.variationCount = settings.variations;
    const model::GenerationResult run = model::runGeneration(request, [] { return 0; }, [] { return playback::Uuid{}; });
    const model::GeneratedLoop& variation = run.loops.front();
    const std::vector<float> samples = audio::toFloat(run.reference, variation.pcmData);
    const std::int64_t frames = static_cast<std::int64_t>(samples.size() / 2);

    const auto host = readyHost(settings);
    const std::int64_t pass = std::llround(static_cast<double>(frames) / 2);
    const Lv2Host::Audio audio = host->render(2 * pass, 2 * loopBpm(settings.loop));
    // The first frames of each placement, clear of the fade where the next cuts it.
    for (std::int64_t start = 0; start < 2 * pass; start += pass)
        for (const chop::Placement& placement : variation.placements) {
            const std::int64_t from = placement.byteOffset / run.reference.blockAlign;
            const std::int64_t at = start + std::llround(static_cast<double>(from) / 2);
            for (std::int64_t i = 0; i < 64; ++i)
                ASSERT_EQ(audio.left[static_cast<std::size_t>(at + i)], samples[static_cast<std::size_t>(2 * (from + i))])
                    << "placement from frame " << from << ", frame " << i << ", pass from " << start;
        }
}

TEST(Plugin, AtAnotherSampleRateRepeatsTheResampledVariationEveryPass) {
    const Settings settings = runs[0];
    const auto host = readyHost(settings, 48000);
    const TemporaryFolder folder;
    exportWithCli(settings, folder.path);
    const auto loopFrames = static_cast<double>(
        stereoFloats(folder.path + "/" + model::variationName(settings.loop, settings.model, 1)).size() / 2);
    const auto pass = static_cast<std::size_t>(std::llround(loopFrames * 48000 / 44100));
    const Lv2Host::Audio audio = host->render(static_cast<std::int64_t>(2 * pass), loopBpm(settings.loop));
    EXPECT_TRUE(std::equal(audio.left.begin(), audio.left.begin() + static_cast<std::ptrdiff_t>(pass),
                           audio.left.begin() + static_cast<std::ptrdiff_t>(pass)));
    EXPECT_GT(*std::max_element(audio.left.begin(), audio.left.end()), 0.1f);
}

TEST(Plugin, GivesTheSameOutputForTheSameStateTwice) {
    const Settings settings = runs[1];
    const std::vector<Lv2Host::Note> notes = {{100, 36, 100}, {5000, 38, 127}, {5001, 40, 90}};
    std::vector<Lv2Host::Audio> renders;
    for (int i = 0; i < 2; ++i)
        renders.push_back(readyHost(settings)->render(3 * 44100, 101.5, notes));
    EXPECT_EQ(renders[0].left, renders[1].left);
    EXPECT_EQ(renders[0].right, renders[1].right);
    EXPECT_GT(*std::max_element(renders[0].left.begin(), renders[0].left.end()), 0.1f);
}

TEST(Plugin, StaysSilentAndSaysWhyOnBadInput) {
    const TemporaryFolder folder;
    const std::string text = folder.path + "/notes.wav";
    audio::test::writeFile(text, std::vector<std::uint8_t>{'n', 'o', 't', ' ', 'a', ' ', 'w', 'a', 'v'});
    struct Case {
        std::string loop, seed;
        Status status;
    };
    for (const Case& c : {Case{folder.path + "/missing.wav", "1", Status::noLoop}, Case{text, "1", Status::unreadableLoop},
                          Case{loopPath("amen_s16.wav"), "one", Status::badSeed},
                          Case{loopPath("amen_s16.wav"), "", Status::badSeed}}) {
        SCOPED_TRACE(c.loop + " seed " + c.seed);
        Lv2Host host(MARQUETRY_LV2_BUNDLE, uri, 44100, blockFrames);
        host.restoreState({{"loop", c.loop}, {"seed", c.seed}});
        ASSERT_TRUE(host.waitWhile("status", static_cast<float>(Status::loading)));
        EXPECT_EQ(host.control("status"), static_cast<float>(c.status));
        const Lv2Host::Audio audio = host.render(4096, 120, {{10, 36, 127}});
        EXPECT_EQ(std::count(audio.left.begin(), audio.left.end(), 0.0f), 4096);
    }
}

TEST(Plugin, SaysWhenTheLoopOnDiskNoLongerMatchesTheProjectAndStillPlays) {
    Lv2Host host(MARQUETRY_LV2_BUNDLE, uri, 44100, blockFrames);
    host.restoreState({{"loop", loopPath("amen_s16.wav")}, {"seed", "3"}, {"verified_sha256", std::string(64, '0')}});
    ASSERT_TRUE(host.waitWhile("status", static_cast<float>(Status::loading)));
    EXPECT_EQ(host.control("status"), static_cast<float>(Status::loopChanged));
    const Lv2Host::Audio audio = host.render(4096, 136.9);
    EXPECT_GT(*std::max_element(audio.left.begin(), audio.left.end()), 0.0f);
}

TEST(Plugin, AllocatesNothingInItsAudioCallback) {
    const auto host = readyHost(runs[1]);
    host->render(2 * 44100, 136.9, {{10, 36, 127}, {700, 37, 127}});
    host->setControl("variation", 2);
    host->render(2 * 44100, 90, {{10, 36, 127}});
    EXPECT_EQ(host->allocationsInRun(), 0);
}

// The exit status of a shell command.
int shell(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void replaceIn(const std::filesystem::path& path, const std::regex& pattern, const std::string& replacement) {
    const std::string text = audio::test::readText(path);
    ASSERT_TRUE(std::regex_search(text, pattern)) << path;
    std::ofstream(path, std::ios::binary) << std::regex_replace(text, pattern, replacement);
}

TEST(Plugin, RendersInArdoursExportAsInTheHarnessAtTheLoopsTempo) {
#ifdef MARQUETRY_SANITIZED
    GTEST_SKIP() << "Ardour is not built with the sanitisers, so it cannot load this sanitised plugin";
#endif
    if (shell("command -v ardour7-lua && command -v ardour7-export") != 0)
        GTEST_SKIP() << "ardour7-lua and ardour7-export are not installed (scripts/install-deps installs ardour)";
    const Settings settings{"amen_s16.wav", chop::ChopModel::grid, 16, 10, "7"};
    const double bpm = loopBpm(settings.loop);
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.path + "/lv2");
    std::filesystem::create_directory_symlink(MARQUETRY_LV2_BUNDLE, folder.path + "/lv2/Marquetry.lv2");
    const std::string env = "env XDG_CONFIG_HOME=" + shellQuoted(folder.path + "/config") + " XDG_CACHE_HOME="
                            + shellQuoted(folder.path + "/cache") + " LV2_PATH=" + shellQuoted(folder.path + "/lv2");
    const std::string log = folder.path + "/ardour.log";

    // Ardour 7.3 now and then aborts while it makes a session: one more try
    // before that counts as a failure.
    const std::filesystem::path session = folder.path + "/session";
    int status = -1;
    for (int attempt = 0; attempt < 2 && status != 0 && status != 77; ++attempt) {
        std::filesystem::remove_all(session);
        status = shell(env + " timeout 120 ardour7-lua " + shellQuoted(MARQUETRY_ARDOUR_SESSION_SCRIPT) + " "
                       + shellQuoted(session.string()) + " marquetry " + uri + " " + std::to_string(bpm)
                       + " 44100 > " + shellQuoted(log) + " 2>&1");
    }
    if (status == 77)
        GTEST_SKIP() << "Ardour could not start its None (Dummy) engine: " << audio::test::readText(log);
    ASSERT_EQ(status, 0) << audio::test::readText(log);

    // The state a user would have saved: the loop and the seed.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(session / "plugins"))
        if (entry.path().filename() == "state.ttl") {
            replaceIn(entry.path(), std::regex("(#loop> )<>"), "$1<file://" + loopPath(settings.loop) + ">");
            replaceIn(entry.path(), std::regex("(#seed> )\"\""), "$1\"" + settings.seed + "\"");
        }
    // A session without regions has no range to export: one of two seconds.
    const std::int64_t frames = 2 * 44100;
    const std::string text = audio::test::readText(session / "marquetry.ardour");
    std::smatch clock;
    ASSERT_TRUE(std::regex_search(text, clock, std::regex("superclocks-per-second=\"([0-9]+)\"")));
    replaceIn(session / "marquetry.ardour", std::regex("<Locations/>"),
              "<Locations><Location id=\"1000000\" name=\"session\" start=\"a0\" end=\"a"
                  + std::to_string(frames * std::stoll(clock[1]) / 44100)
                  + "\" flags=\"IsSessionRange\" locked=\"0\" timestamp=\"0\" cue=\"0\"/></Locations>");

    const std::string exported = folder.path + "/export.wav";
    // Ardour now and then exports a run of silence; a second export of the
    // same session does not.
    std::vector<float> samples;
    for (int attempt = 0; attempt < 2; ++attempt) {
        ASSERT_EQ(shell(env + " timeout 120 ardour7-export -b 24 -o " + shellQuoted(exported) + " "
                        + shellQuoted(session.string()) + " marquetry > " + shellQuoted(log) + " 2>&1"),
                  0)
            << audio::test::readText(log);
        const audio::WavData wav = audio::loadWav(exported);
        samples = audio::toFloat(wav, wav.pcmData);
        if (std::any_of(samples.begin(), samples.end(), [](float x) { return x != 0.0f; }))
            break;
    }
    ASSERT_EQ(samples.size(), static_cast<std::size_t>(2 * frames));

    const Lv2Host::Audio expected = readyHost(settings)->render(frames, bpm);
    std::size_t wrong = 0;
    for (std::size_t f = 0; f < static_cast<std::size_t>(frames); ++f)
        wrong += samples[2 * f] != expected.left[f] || samples[2 * f + 1] != expected.right[f];
    EXPECT_EQ(wrong, 0u) << "of " << frames << " frames";
    EXPECT_GT(*std::max_element(samples.begin(), samples.end()), 0.1f) << "Ardour exported silence twice";
}

} // namespace
} // namespace marquetry::plugin
