// Fitting variations to the bar grid by stretching, beside the peer that
// does the same job: Rubber Band's own command line tool, run once per
// variation one after another, on the same ten-second loop and the same
// variations, in the same run. Both use Rubber Band's default (R2) engine.

#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "chop/VariationPlan.hpp"

#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

using namespace marquetry;
namespace fs = std::filesystem;

constexpr std::int64_t variationCount = 10;

// Ten Dice variations of the loop, unfitted: their lengths differ from the
// loop's, so every one of them needs a real stretch.
struct Material {
    std::vector<audio::WavData> sources;
    chop::RunPlan plan;
    std::vector<audio::Bytes> unfitted;
    fs::path folder;

    Material() {
        sources.push_back(audio::loadWav(MARQUETRY_TEST_LOOPS_DIR "/amen_10s_s16.wav"));
        chop::SeededGenerator rng(7);
        plan = chop::planRun(sources, settings(chop::FitMode::off), rng);
        for (const chop::VariationPlan& variation : plan.variations)
            unfitted.push_back(chop::renderVariation(variation, plan.pool, sources));
        folder = fs::temp_directory_path() / ("marquetry-stretch-bench-" + std::to_string(::getpid()));
        fs::create_directories(folder);
        for (std::size_t i = 0; i < unfitted.size(); ++i) {
            const audio::Bytes file = audio::buildWavFileData(sources[0], unfitted[i]);
            std::ofstream(input(i), std::ios::binary)
                .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        }
    }
    ~Material() { fs::remove_all(folder); }

    static chop::PlanSettings settings(chop::FitMode fit) {
        return {16, chop::ChopModel::dice, variationCount, 0.55, 0, fit};
    }
    std::string input(std::size_t i) const { return (folder / ("in" + std::to_string(i) + ".wav")).string(); }
    std::string output(std::size_t i) const { return (folder / ("out" + std::to_string(i) + ".wav")).string(); }
    double seconds() const {
        return static_cast<double>(sources[0].pcmData.size() / sources[0].blockAlign) / sources[0].sampleRate;
    }
};

const Material& material() {
    static const Material shared;
    return shared;
}

void BM_StretchVariationsToTheLoop(benchmark::State& state) {
    const Material& m = material();
    const chop::PlanSettings settings = Material::settings(chop::FitMode::stretch);
    for (auto _ : state) {
        const auto rendered = chop::renderVariations(m.plan.variations, m.plan.pool, m.sources, 1000, settings,
                                                     static_cast<unsigned>(state.range(0)));
        benchmark::DoNotOptimize(rendered.data());
    }
}
BENCHMARK(BM_StretchVariationsToTheLoop)->Arg(0)->Arg(1)->ArgName("threads")->Unit(benchmark::kMillisecond)->UseRealTime();

bool runTool(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    if (::posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return false;
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void BM_RubberbandToolSameStretchesOneAfterAnother(benchmark::State& state) {
    const Material& m = material();
    const std::string duration = std::to_string(m.seconds());
    for (auto _ : state) {
        for (std::size_t i = 0; i < m.unfitted.size(); ++i) {
            if (!runTool({"rubberband", "-q", "-D", duration, m.input(i), m.output(i)})) {
                state.SkipWithError("the rubberband tool (package rubberband-cli) did not run");
                return;
            }
        }
    }
}
BENCHMARK(BM_RubberbandToolSameStretchesOneAfterAnother)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
