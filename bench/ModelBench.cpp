// Generation (with and without join fades, watched for progress as the
// window watches it, and how soon a cancelled run stops), export, scanning (also with the
// window's background facts pass queued, and that pass itself) and onset
// detection through the product's own paths, each beside a baseline measured
// in the same run: a memcpy of the bytes a run produces, plain writes of the
// files export writes, a bare listing of the folder a scan reads, and a peer
// onset detector on the same loop.

#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "cli/Cli.hpp"
#include "chop/TempoEstimate.hpp"
#include "chop/TransientDetection.hpp"
#include "model/AppModel.hpp"
#include "model/FileSystem.hpp"
#include "model/Generation.hpp"
#include "model/SystemServices.hpp"
#include "chop/VariationPlan.hpp"

#include "support/PlatformFakes.hpp"
#include "support/FakeAudioOutput.hpp"
#include "Baselines.hpp"
#include "LoopFolder.hpp"

#include <aubio/aubio.h>
#include <benchmark/benchmark.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>

#include <unistd.h>

namespace {

using namespace marquetry;
namespace fs = std::filesystem;

const std::string loopPath = MARQUETRY_TEST_LOOPS_DIR "/amen_10s_s16.wav";
constexpr std::int64_t slices = 128;
constexpr std::int64_t variations = 100;
constexpr int scannedFiles = 10'000;

model::RunSettings gridRequest(std::int64_t joinFadeMs = 0) {
    model::RunSettings request;
    request.plan.joinFadeMs = joinFadeMs;
    request.seedText = "1";
    request.selectedPath = loopPath;
    request.plan.sliceCount = slices;
    request.plan.variationCount = variations;
    return request;
}

std::int64_t unixSeconds() { return 1'700'000'000; }
playback::Uuid counterUuid() {
    static std::uint8_t counter = 0;
    return {++counter};
}

std::int64_t outputBytes(const model::GenerationResult& result) {
    std::int64_t bytes = 0;
    for (const auto& loop : result.loops)
        bytes += std::ssize(loop.pcmData);
    return bytes;
}

// The model's platform for benchmarks: settings in memory, and a task queue
// drained on this thread as the event loop would.
struct Platform {
    model::test::FakeSettings settings;
    model::test::FakeFolderChooser chooser;
    model::test::FakeFileBrowser browser;
    model::test::FakeTaskRunner tasks;
    playback::test::FakeAudioPlayerFactory players;
    playback::test::FakeTimerFactory timers;

    model::Platform forModel() {
        return {settings, chooser, browser, tasks, players, timers, "/nonexistent-home", unixSeconds, counterUuid};
    }
};

struct ScratchFolder {
    fs::path path;
    explicit ScratchFolder(const std::string& name = "bench")
        : path(fs::temp_directory_path() / ("marquetry-" + name + "-" + std::to_string(::getpid()))) {
        fs::create_directories(path);
    }
    ~ScratchFolder() { fs::remove_all(path); }
};

// The same copy into memory that was never touched: a run's output is new
// memory too, and first touching it costs page faults a reused buffer hides.
void memcpyIntoNewMemory(benchmark::State& state) {
    const auto bytes = static_cast<std::size_t>(state.range(0));
    const audio::Bytes source(bytes, 0x5A);
    for (auto _ : state) {
        const std::unique_ptr<std::uint8_t[]> target(new std::uint8_t[bytes]);
        std::memcpy(target.get(), source.data(), bytes);
        benchmark::DoNotOptimize(target.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// state.range(0) threads render; 0 means one per core, as the product runs.
void generation(benchmark::State& state, std::int64_t joinFadeMs, bool watched = false) {
    std::int64_t bytes = 0;
    for (auto _ : state) {
        chop::RunProgress progress;
        const auto result = model::runGeneration(gridRequest(joinFadeMs), unixSeconds, counterUuid,
                                                 static_cast<unsigned>(state.range(0)), {}, nullptr,
                                                 watched ? &progress : nullptr);
        bytes = outputBytes(result);
        benchmark::DoNotOptimize(result.loops.data());
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

// From Cancel to the worker's return, for 100 Dice variations stretched to
// the loop's length: the run is cancelled a varying time into a variation,
// after the first has been counted. The model itself is idle at once. The
// baseline beside it is what a cancel checked only between variations would
// wait for at worst: the time to the first variation counted.
void cancelLatency(benchmark::State& state) {
    model::RunSettings request = gridRequest();
    request.plan.sliceCount = 16;
    request.plan.chopModel = chop::ChopModel::dice;
    request.plan.fit = chop::FitMode::stretch;
    double slowest = 0;
    double firstVariation = 0;
    int round = 0;
    for (auto _ : state) {
        chop::RunProgress progress;
        const auto started = std::chrono::steady_clock::now();
        std::thread worker([&] {
            try {
                model::runGeneration(request, unixSeconds, counterUuid, 0, {}, nullptr, &progress);
            } catch (const chop::RunCancelled&) {
            }
        });
        while (progress.variationsDone.load() == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        firstVariation += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
        std::this_thread::sleep_for(std::chrono::milliseconds(37 * (round++ % 8)));
        const auto cancelled = std::chrono::steady_clock::now();
        progress.cancelled.store(true);
        worker.join();
        const std::chrono::duration<double> latency = std::chrono::steady_clock::now() - cancelled;
        state.SetIterationTime(latency.count());
        slowest = std::max(slowest, latency.count() * 1000);
    }
    state.counters["slowest_ms"] = slowest;
    state.counters["firstVariation_ms"] = firstVariation / static_cast<double>(state.iterations());
}

// The run while the source list's facts pass works beside it, at the pass's
// own priority or at the default one: what the pass takes from Generate.
void generationBesideFacts(benchmark::State& state, bool whenIdle, const audio::WavData& loop) {
    std::atomic<bool> stop{false};
    std::thread facts([&] {
        if (whenIdle)
            model::runThisThreadWhenIdle();
        while (!stop.load())
            benchmark::DoNotOptimize(chop::estimateTempo(loop));
    });
    generation(state, 0);
    stop.store(true);
    facts.join();
}

// The command line's whole generate of ten variations, in this process,
// against its own parts: the run and plain writes of the same files.
void cliGenerate(benchmark::State& state, const std::string& folder) {
    const std::vector<std::string> arguments{"generate", "--source", loopPath, "--variations", "10", "--seed", "1",
                                             "--output", folder};
    for (auto _ : state) {
        std::ostringstream out, err;
        if (cli::runCli(arguments, out, err) != 0) {
            state.SkipWithError(err.str().c_str());
            break;
        }
    }
}

void runThenPlainWrites(benchmark::State& state, const std::string& folder) {
    model::RunSettings settings;
    settings.selectedPath = loopPath;
    settings.seedText = "1";
    for (auto _ : state) {
        const model::GenerationResult result = model::runGeneration(settings, unixSeconds, counterUuid);
        for (const model::GeneratedLoop& loop : result.loops)
            model::writeFileAtomically(folder + "/" + loop.name, audio::buildWavFileData(result.reference, loop.pcmData));
    }
}

// Every draw of the same run and no byte: what rendering leaves to be paid.
void planning(benchmark::State& state, const audio::WavData& loop) {
    const std::vector<audio::WavData> sources{loop};
    for (auto _ : state) {
        chop::SeededGenerator rng(1);
        const auto plan = chop::planRun(sources, {slices, chop::ChopModel::grid, variations, 0.55}, rng);
        benchmark::DoNotOptimize(plan.variations.data());
    }
}

// With `withKit`, tags and a slice kit (into the output folder's kit folder) too.
void exportSelected(benchmark::State& state, model::AppModel& app, const std::string& folder, bool withKit = false) {
    app.setOutputDir(folder);
    app.changeSettings([&](model::RunSettings& s) {
        s.exportOptions.tags = withKit;
        s.exportOptions.kit = withKit;
    });
    for (auto _ : state) {
        app.exportSelected();
        if (!app.status().starts_with("Exported ")) {
            state.SkipWithError(app.status().c_str());
            break;
        }
    }
}

// The same files, same names and bytes, written with fopen/fwrite/fclose and
// nothing to make them durable.
void plainWrites(benchmark::State& state, const model::AppModel& app, const std::string& folder) {
    std::vector<std::pair<std::string, audio::Bytes>> files;
    for (const auto& loop : app.generatedLoops())
        files.emplace_back(folder + "/" + loop.name, audio::buildWavFileData(*app.sourceWavData(), loop.pcmData));
    for (auto _ : state) {
        for (const auto& [path, bytes] : files) {
            std::FILE* file = std::fopen(path.c_str(), "wb");
            if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
                state.SkipWithError("plain write failed");
                return;
            }
            std::fclose(file);
        }
    }
}

void scan(benchmark::State& state, model::AppModel& app) {
    for (auto _ : state) {
        app.refreshFiles();
        benchmark::DoNotOptimize(app.wavFiles().data());
    }
    state.SetItemsProcessed(state.iterations() * std::ssize(app.wavFiles()));
}

// A scan as the window makes it: the facts pass is queued, never waited for.
// The queue is emptied outside the timing.
void scanWithFacts(benchmark::State& state, model::AppModel& app, model::test::FakeTaskRunner& tasks) {
    for (auto _ : state) {
        app.refreshFiles();
        benchmark::DoNotOptimize(app.wavFiles().data());
        state.PauseTiming();
        tasks.background.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * std::ssize(app.wavFiles()));
}

// The pass itself, on its worker and in its hand-backs: every header, then
// every loop decoded for its tempo.
void factsPass(benchmark::State& state, model::AppModel& app, model::test::FakeTaskRunner& tasks) {
    for (auto _ : state) {
        state.PauseTiming();
        app.refreshFiles();
        state.ResumeTiming();
        tasks.drain();
    }
    state.SetItemsProcessed(state.iterations() * std::ssize(app.wavFiles()));
}

void listing(benchmark::State& state, const std::string& folder) {
    std::size_t count = 0;
    for (auto _ : state) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        count = names.size();
        benchmark::DoNotOptimize(names.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

void transientBoundaries(benchmark::State& state, const audio::WavData& wav) {
    for (auto _ : state) {
        const auto boundaries = chop::buildTransientBoundaries(wav, 16);
        benchmark::DoNotOptimize(boundaries.data());
    }
    state.SetBytesProcessed(state.iterations() * std::ssize(wav.pcmData));
}

// The peer's default onset detector (high-frequency content, 512-sample
// window, 256-sample hop) over the same stereo 16-bit loop, mixed to mono as
// it needs, conversion included since our detector reads the raw bytes too.
void aubioOnsets(benchmark::State& state, const audio::WavData& wav) {
    constexpr uint_t window = 512;
    constexpr uint_t hop = 256;
    const auto frames = static_cast<std::size_t>(audio::frameCount(wav.pcmData.size(), wav.blockAlign));
    std::size_t onsets = 0;
    for (auto _ : state) {
        aubio_onset_t* detector = new_aubio_onset("default", window, hop, wav.sampleRate);
        fvec_t* input = new_fvec(hop);
        fvec_t* output = new_fvec(1);
        onsets = 0;
        for (std::size_t start = 0; start + hop <= frames; start += hop) {
            for (uint_t i = 0; i < hop; ++i) {
                std::int16_t left;
                std::int16_t right;
                std::memcpy(&left, wav.pcmData.data() + 4 * (start + i), 2);
                std::memcpy(&right, wav.pcmData.data() + 4 * (start + i) + 2, 2);
                input->data[i] = static_cast<smpl_t>(left + right) / 65536.0f;
            }
            aubio_onset_do(detector, input, output);
            onsets += output->data[0] != 0 ? 1 : 0;
        }
        del_fvec(output);
        del_fvec(input);
        del_aubio_onset(detector);
    }
    state.counters["onsets"] = static_cast<double>(onsets);
    state.SetBytesProcessed(state.iterations() * std::ssize(wav.pcmData));
}

// A model holding the 100 variations of the benchmarked run, and a folder
// of 10,000 small loops: built on first use, so a filtered run pays only for
// what it measures.
struct ExportSetup {
    ScratchFolder scratch;
    Platform platform;
    std::unique_ptr<model::AppModel> app;
    std::string exportFolder = (scratch.path / "export").string();
    std::string plainFolder = (scratch.path / "plain").string();

    explicit ExportSetup(std::int64_t sliceCount = slices) {
        platform.settings.values[model::AppModel::sourceDirKey] = fs::path(loopPath).parent_path().string();
        platform.settings.values[model::AppModel::outputDirKey] = scratch.path.string();
        app = std::make_unique<model::AppModel>(platform.forModel());
        app->selectFile(loopPath);
        app->changeSettings([&](model::RunSettings& s) { s.plan.sliceCount = sliceCount; });
        app->changeSettings([&](model::RunSettings& s) { s.plan.variationCount = variations; });
        app->changeSettings([&](model::RunSettings& s) { s.seedText = "1"; });
        app->generate();
        platform.tasks.drain();
        fs::create_directories(plainFolder);
    }
    static ExportSetup& shared() {
        static ExportSetup setup;
        return setup;
    }
    // A kit maps one slice to a note, so its run has as many slices as a
    // keyboard has room for: the window's default of 16.
    static ExportSetup& forKit() {
        static ExportSetup setup(16);
        return setup;
    }
};

struct ScanSetup {
    ScratchFolder scratch;
    Platform platform;
    std::unique_ptr<model::AppModel> scanner;
    Platform factsPlatform;
    std::unique_ptr<model::AppModel> factsScanner;

    ScanSetup() {
        bench::writeSmallLoops(scratch.path, scannedFiles, loopPath);
        platform.settings.values[model::AppModel::sourceDirKey] = scratch.path.string();
        platform.settings.values[model::AppModel::outputDirKey] = scratch.path.string();
        scanner = std::make_unique<model::AppModel>(platform.forModel());
        factsPlatform.settings.values = platform.settings.values;
        factsScanner = std::make_unique<model::AppModel>(factsPlatform.forModel());
        factsScanner->readSourceFactsInBackground();
        factsPlatform.tasks.background.clear();
    }
    static ScanSetup& shared() {
        static ScanSetup setup;
        return setup;
    }
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    try {
        const audio::WavData loop = audio::loadWav(loopPath);
        const std::int64_t runBytes = outputBytes(model::runGeneration(gridRequest(), unixSeconds, counterUuid));

        // The same run with 5 ms join fades: their cost is the difference.
        for (const std::int64_t fadeMs : {0, 5})
            benchmark::RegisterBenchmark(fadeMs == 0 ? "BM_Generation/Grid/128slices/100variations"
                                                     : "BM_Generation/Grid/128slices/100variations/fade5ms",
                                         [fadeMs](benchmark::State& s) { generation(s, fadeMs); })
                ->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
        // Counted and checked for a cancel as the window runs it, beside the
        // unwatched run above.
        benchmark::RegisterBenchmark("BM_Generation/Grid/128slices/100variations/watched",
                                     [](benchmark::State& s) { generation(s, 0, true); })
            ->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_CancelLatency/Dice/stretch/100variations", cancelLatency)
            ->Iterations(16)->Unit(benchmark::kMillisecond)->UseManualTime();
        for (const bool whenIdle : {false, true})
            benchmark::RegisterBenchmark(whenIdle ? "BM_Generation/Grid/128slices/100variations/besideIdleFacts"
                                                  : "BM_Generation/Grid/128slices/100variations/besideFacts",
                                         [whenIdle, &loop](benchmark::State& s) { generationBesideFacts(s, whenIdle, loop); })
                ->ArgName("threads")->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_Planning/Grid/128slices/100variations", [&](benchmark::State& s) {
            planning(s, loop);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_MemcpyOutputBytes", bench::memcpyBaseline)
            ->Arg(runBytes)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_MemcpyOutputBytesIntoNewMemory", memcpyIntoNewMemory)
            ->Arg(runBytes)->Unit(benchmark::kMillisecond)->UseRealTime();

        benchmark::RegisterBenchmark("BM_ExportSelected/100files", [](benchmark::State& s) {
            auto& setup = ExportSetup::shared();
            exportSelected(s, *setup.app, setup.exportFolder);
        })->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_PlainWrites/100files", [](benchmark::State& s) {
            auto& setup = ExportSetup::shared();
            plainWrites(s, *setup.app, setup.plainFolder);
        })->Unit(benchmark::kMillisecond)->UseRealTime();

        // Tags and a slice kit against the plain export of the same run.
        benchmark::RegisterBenchmark("BM_ExportSelected/100files/16slices", [](benchmark::State& s) {
            auto& setup = ExportSetup::forKit();
            exportSelected(s, *setup.app, setup.exportFolder);
        })->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_ExportSelected/100files/16slices/tagsAndKit", [](benchmark::State& s) {
            auto& setup = ExportSetup::forKit();
            exportSelected(s, *setup.app, setup.exportFolder, true);
        })->Unit(benchmark::kMillisecond)->UseRealTime();

        const ScratchFolder cliScratch("cli-bench");
        const std::string cliFolder = (cliScratch.path / "cli").string();
        const std::string plainFolder = (cliScratch.path / "plain").string();
        fs::create_directories(plainFolder);
        benchmark::RegisterBenchmark("BM_CliGenerate/10variations", [&](benchmark::State& s) {
            cliGenerate(s, cliFolder);
        })->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_RunGenerationThenPlainWrites/10variations", [&](benchmark::State& s) {
            runThenPlainWrites(s, plainFolder);
        })->Unit(benchmark::kMillisecond)->UseRealTime();

        benchmark::RegisterBenchmark("BM_Scan/10000files", [](benchmark::State& s) {
            scan(s, *ScanSetup::shared().scanner);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_Scan/10000files/factsQueued", [](benchmark::State& s) {
            auto& setup = ScanSetup::shared();
            scanWithFacts(s, *setup.factsScanner, setup.factsPlatform.tasks);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_FactsPass/10000files", [](benchmark::State& s) {
            auto& setup = ScanSetup::shared();
            factsPass(s, *setup.factsScanner, setup.factsPlatform.tasks);
        })->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark("BM_ListFolder/10000files", [](benchmark::State& s) {
            listing(s, ScanSetup::shared().scratch.path.string());
        })->Unit(benchmark::kMillisecond);

        benchmark::RegisterBenchmark("BM_TransientBoundaries/16", [&](benchmark::State& s) {
            transientBoundaries(s, loop);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_PeerOnsetDetector", [&](benchmark::State& s) { aubioOnsets(s, loop); })
            ->Unit(benchmark::kMillisecond);

        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << "marquetry_model_bench: " << error.what() << '\n';
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
