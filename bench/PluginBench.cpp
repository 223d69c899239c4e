// The plugin's audio callback against a plain copy of the same frames, and
// a new seed's way to the audio thread against the engine's run alone.
#include "plugin/Lv2Host.hpp"

#include "model/Generation.hpp"
#include "plugin/Player.hpp"
#include "plugin/PreparedRun.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace marquetry::bench {
namespace {

constexpr double hostRate = 48000;
constexpr std::uint32_t blockFrames = 64;
constexpr std::int64_t blocksPerSecond = static_cast<std::int64_t>(hostRate) / blockFrames;
const std::string tenSecondLoop = std::string(MARQUETRY_TEST_LOOPS_DIR) + "/amen_10s_s16.wav";

const plugin::PreparedRun& preparedRun() {
    static const std::unique_ptr<const plugin::PreparedRun> run = [] {
        plugin::PluginSettings settings;
        settings.loopPath = tenSecondLoop;
        settings.seedText = std::to_string(1);
        return plugin::prepareRun(settings, hostRate);
    }();
    return *run;
}

// One second of the host's audio in 64-frame blocks, the transport rolling:
// at the loop's tempo (range 1), at 0.9 of it so every slice is re-triggered
// and cut (range 0.9), and at the loop's tempo with a note every beat.
void BM_PluginCallbackOneSecond(benchmark::State& state) {
    const plugin::PreparedRun& run = preparedRun();
    const double bpm = run.loopBpm * static_cast<double>(state.range(0)) / 100;
    const bool notes = state.range(1) != 0;
    plugin::Player player;
    std::vector<float> left(blockFrames), right(blockFrames);
    std::int64_t frame = 0;
    for (auto _ : state) {
        for (std::int64_t block = 0; block < blocksPerSecond; ++block) {
            const plugin::NoteOn note{0, static_cast<std::uint8_t>(36 + block % 16), 100};
            const bool onBeat = notes && block % 23 == 0;
            player.process(&run, {true, frame, bpm}, {true, 1}, std::span(&note, onBeat ? 1 : 0), left.data(),
                           right.data(), blockFrames);
            frame += blockFrames;
            benchmark::DoNotOptimize(left.data());
            benchmark::DoNotOptimize(right.data());
        }
    }
}
BENCHMARK(BM_PluginCallbackOneSecond)->Args({100, 0})->Args({90, 0})->Args({100, 1})->Unit(benchmark::kMicrosecond);

// The baseline: the same frames copied from an interleaved float buffer
// into the two output blocks, nothing else.
void BM_FloatCopyOneSecond(benchmark::State& state) {
    const plugin::PlayableVariation& variation = preparedRun().variations.front();
    const std::int64_t frames = variation.frames;
    std::vector<float> samples;
    for (std::int64_t f = 0; f < frames; ++f)
        samples.insert(samples.end(), {variation.sample(f, 0), variation.sample(f, 1)});
    std::vector<float> left(blockFrames), right(blockFrames);
    std::int64_t frame = 0;
    for (auto _ : state) {
        for (std::int64_t block = 0; block < blocksPerSecond; ++block) {
            for (std::uint32_t i = 0; i < blockFrames; ++i) {
                const auto at = static_cast<std::size_t>(2 * ((frame + i) % frames));
                left[i] = samples[at];
                right[i] = samples[at + 1];
            }
            frame += blockFrames;
            benchmark::DoNotOptimize(left.data());
            benchmark::DoNotOptimize(right.data());
        }
    }
}
BENCHMARK(BM_FloatCopyOneSecond)->Unit(benchmark::kMicrosecond);

constexpr std::int64_t manyVariations = 100;

// A new seed restored into the loaded plugin (through lilv, at the loop's
// rate) until the host reads that the new run plays.
void BM_NewSeedToNewRunPlaying(benchmark::State& state) {
    test::Lv2Host host(MARQUETRY_LV2_BUNDLE, "urn:marquetry:player", 44100, blockFrames);
    host.setControl("variations", manyVariations);
    std::int64_t seed = 1;
    for (auto _ : state) {
        host.restoreState({{"loop", tenSecondLoop}, {"seed", std::to_string(seed++)}});
        if (!host.waitWhile("status", static_cast<float>(plugin::Status::loading))
            || host.control("status") != static_cast<float>(plugin::Status::ready))
            state.SkipWithError("the plugin did not get ready");
    }
}
BENCHMARK(BM_NewSeedToNewRunPlaying)->Unit(benchmark::kMillisecond)->UseRealTime();

// The worker's part alone: the same run made ready for the audio thread.
void BM_PrepareRunSameSettings(benchmark::State& state) {
    plugin::PluginSettings settings;
    settings.loopPath = tenSecondLoop;
    settings.variations = manyVariations;
    std::int64_t seed = 1;
    for (auto _ : state) {
        settings.seedText = std::to_string(seed++);
        benchmark::DoNotOptimize(plugin::prepareRun(settings, 44100));
    }
}
BENCHMARK(BM_PrepareRunSameSettings)->Unit(benchmark::kMillisecond)->UseRealTime();

// The baseline: the engine's run of the same settings, on as many threads.
void BM_RunGenerationSameSettings(benchmark::State& state) {
    model::RunSettings request;
    request.selectedPath = tenSecondLoop;
    request.plan.variationCount = manyVariations;
    std::int64_t seed = 1;
    for (auto _ : state) {
        request.seedText = std::to_string(seed++);
        benchmark::DoNotOptimize(model::runGeneration(request, [] { return 0; }, [] { return playback::Uuid{}; }));
    }
}
BENCHMARK(BM_RunGenerationSameSettings)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
} // namespace marquetry::bench

BENCHMARK_MAIN();
