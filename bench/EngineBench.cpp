// The engine's hot paths on a real ten-second stereo 16-bit drum loop. Each
// path reports the bytes it reads or writes, and a memcpy of that same byte
// count runs in the same process, so a figure is read as a multiple of the
// cheapest possible pass over that much memory rather than as an absolute
// time that means nothing on the next machine.

#include "audio/WavReader.hpp"
#include "audio/WaveformEnvelope.hpp"
#include "chop/GlitchEffects.hpp"
#include "chop/PatternGenerators.hpp"
#include "chop/Slicing.hpp"
#include "chop/TransientDetection.hpp"

#include "Baselines.hpp"

#include <benchmark/benchmark.h>

#include <cstring>
#include <exception>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>

namespace {

using namespace marquetry;

constexpr std::int64_t manySlices = 128;
constexpr std::int64_t glitchSlices = 16;
constexpr double glitchAmount = 0.55;
constexpr std::uint64_t seed = 20240601;

// Boundaries and patterns are vectors of 64-bit values; their baseline is a
// memcpy of the result they produce.
constexpr std::int64_t boundaryBytes = (manySlices + 1) * std::int64_t{sizeof(chop::FrameIndex)};
constexpr std::int64_t patternBytes = manySlices * std::int64_t{sizeof(std::int64_t)};

void reportBytes(benchmark::State& state, std::int64_t bytesPerIteration) {
    state.SetBytesProcessed(state.iterations() * bytesPerIteration);
}

void envelope(benchmark::State& state, const audio::WavData& wav) {
    for (auto _ : state) {
        const auto points = audio::waveformEnvelope(wav, state.range(0));
        benchmark::DoNotOptimize(points.data());
    }
    reportBytes(state, std::ssize(wav.pcmData));
}

void transientBoundaries(benchmark::State& state, const audio::WavData& wav) {
    for (auto _ : state) {
        const auto boundaries = chop::buildTransientBoundaries(wav, state.range(0));
        benchmark::DoNotOptimize(boundaries.data());
    }
    reportBytes(state, std::ssize(wav.pcmData));
}

// A running generator, as in a real run: every iteration draws fresh weights
// instead of replaying one sequence the branch predictor could learn.
void stochasticBoundaries(benchmark::State& state, audio::FrameCount totalFrames, chop::ChopModel model) {
    chop::SeededGenerator rng(seed);
    for (auto _ : state) {
        const auto boundaries = chop::buildStochasticBoundaries(totalFrames, state.range(0), rng, model);
        benchmark::DoNotOptimize(boundaries.data());
    }
    reportBytes(state, boundaryBytes);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

using PatternGenerator = chop::Pattern (*)(std::int64_t, chop::SeededGenerator&);

void pattern(benchmark::State& state, PatternGenerator generate) {
    chop::SeededGenerator rng(seed);
    for (auto _ : state) {
        const auto order = generate(state.range(0), rng);
        benchmark::DoNotOptimize(order.data());
    }
    reportBytes(state, patternBytes);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The slices are cut once: the split is a copy, and copying is what the
// baseline already measures.
void glitchChain(benchmark::State& state, const audio::WavData& wav) {
    const auto slices = chop::splitSlices(wav.pcmData, wav.blockAlign, glitchSlices);
    std::int64_t sliceBytes = 0;
    for (const auto& slice : slices)
        sliceBytes += std::ssize(slice);

    chop::SeededGenerator rng(seed);
    for (auto _ : state) {
        for (const auto& slice : slices) {
            const auto placed = chop::applyGlitchEffects(slice, wav, glitchAmount, rng);
            benchmark::DoNotOptimize(placed.data());
        }
    }
    reportBytes(state, sliceBytes);
    state.SetItemsProcessed(state.iterations() * std::ssize(slices));
}

// Growth with the slice count, from 128 to a million slices of a ten-minute
// loop. Each count has its own baseline in the same run: a memcpy of the
// bytes of its result for the stages that work per slice, whose times the
// library also fits to O(N) (a linear stage has a small RMS), and a memcpy of
// the loop for the stages that read the audio, whose cost is mostly that pass.
constexpr std::int64_t growthCounts[] = {128, 1000, 10'000, 100'000, 1'000'000};

template <typename Stage>
void perSlice(benchmark::State& state, Stage stage) {
    chop::SeededGenerator rng(seed);
    for (auto _ : state)
        stage(state.range(0), rng);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

enum class Reads { slices, audio };

template <typename Stage>
void registerGrowthOf(const std::string& name, Reads reads, Stage stage) {
    auto* benchmark = benchmark::RegisterBenchmark(("BM_Growth/" + name).c_str(), perSlice<Stage>, stage);
    for (const std::int64_t count : growthCounts)
        benchmark->Arg(count);
    benchmark->Unit(benchmark::kMillisecond);
    if (reads == Reads::slices)
        benchmark->Complexity(benchmark::oN);
}

void registerGrowth(const audio::WavData& loop) {
    benchmark::RegisterBenchmark("BM_Growth/MemcpyBaseline", bench::memcpyBaseline)->Arg(std::ssize(loop.pcmData));
    for (const std::int64_t count : growthCounts)
        benchmark::RegisterBenchmark("BM_Growth/MemcpyBaseline", bench::memcpyBaseline)
            ->Arg(count * std::int64_t{sizeof(std::int64_t)});

    const auto totalFrames = audio::frameCount(loop.pcmData.size(), loop.blockAlign);
    registerGrowthOf("Boundaries/Transient", Reads::audio, [&loop](std::int64_t count, chop::SeededGenerator&) {
        benchmark::DoNotOptimize(chop::buildTransientBoundaries(loop, count).data());
    });
    for (const chop::ChopModel model : {chop::ChopModel::dice, chop::ChopModel::swarm})
        registerGrowthOf("Boundaries/" + std::string(chop::label(model)), Reads::slices,
                         [totalFrames, model](std::int64_t count, chop::SeededGenerator& rng) {
                             const auto cut = chop::buildStochasticBoundaries(totalFrames, count, rng, model);
                             benchmark::DoNotOptimize(cut.data());
                         });
    registerGrowthOf("EvenSplit", Reads::audio, [&loop](std::int64_t count, chop::SeededGenerator&) {
        benchmark::DoNotOptimize(chop::splitSlices(loop.pcmData, loop.blockAlign, count).data());
    });
    // One model per pattern generator; Dice adds its replacement pass.
    for (const chop::ChopModel model : {chop::ChopModel::grid, chop::ChopModel::dice, chop::ChopModel::pivot,
                                        chop::ChopModel::interlock, chop::ChopModel::drift, chop::ChopModel::momentum})
        registerGrowthOf("Pattern/" + std::string(chop::label(model)), Reads::slices,
                         [model](std::int64_t count, chop::SeededGenerator& rng) {
                             benchmark::DoNotOptimize(chop::generatePattern(model, count, rng).data());
                         });
}

void registerAll(const audio::WavData& wav) {
    const auto loopBytes = std::ssize(wav.pcmData);
    const auto totalFrames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    using benchmark::kMicrosecond;

    benchmark::RegisterBenchmark("BM_MemcpyBaseline", bench::memcpyBaseline)
        ->Arg(loopBytes)
        ->Arg(boundaryBytes)
        ->Arg(patternBytes);

    benchmark::RegisterBenchmark("BM_WaveformEnvelope", envelope, std::cref(wav))->Arg(1000)->Unit(kMicrosecond);
    benchmark::RegisterBenchmark("BM_TransientBoundaries", transientBoundaries, std::cref(wav))
        ->Arg(16)
        ->Arg(manySlices)
        ->Unit(kMicrosecond);
    benchmark::RegisterBenchmark("BM_GlitchChain", glitchChain, std::cref(wav))->Unit(kMicrosecond);

    benchmark::RegisterBenchmark("BM_StochasticBoundaries/Dice", stochasticBoundaries, totalFrames,
                                 chop::ChopModel::dice)
        ->Arg(manySlices);
    benchmark::RegisterBenchmark("BM_StochasticBoundaries/Swarm", stochasticBoundaries, totalFrames,
                                 chop::ChopModel::swarm)
        ->Arg(manySlices);

    const std::pair<const char*, PatternGenerator> generators[] = {
        {"BM_Pattern/GridLike", chop::generatePatternGridLike},
        {"BM_Pattern/Pivot", chop::generatePatternPivot},
        {"BM_Pattern/Interlock", chop::generatePatternInterlock},
        {"BM_Pattern/Drift", chop::generatePatternDrift},
        {"BM_Pattern/Momentum", chop::generatePatternMomentum},
    };
    for (const auto& [name, generate] : generators)
        benchmark::RegisterBenchmark(name, pattern, generate)->Arg(manySlices);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;

    const std::string path = MARQUETRY_TEST_LOOPS_DIR "/amen_10s_s16.wav";
    audio::WavData wav;
    try {
        wav = audio::loadWav(path);
    } catch (const std::exception& error) {
        std::cerr << "marquetry_bench: " << error.what() << '\n';
        return 1;
    }
    // The glitch chain only pitch-shifts 16-bit PCM, so another layout would
    // quietly measure a cheaper path.
    if (wav.audioFormat != audio::formatPcm || wav.bitsPerSample != 16 || wav.channels != 2) {
        std::cerr << "marquetry_bench: " << path << " is not stereo 16-bit PCM\n";
        return 1;
    }

    registerAll(wav);
    // Ten minutes: the ten-second loop sixty times over.
    audio::WavData tenMinutes = wav;
    tenMinutes.pcmData.reserve(60 * wav.pcmData.size());
    for (int i = 1; i < 60; ++i)
        tenMinutes.pcmData.insert(tenMinutes.pcmData.end(), wav.pcmData.begin(), wav.pcmData.end());
    registerGrowth(tenMinutes);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
