// The main window over a sample pack of 10,000 loops, offscreen: opening the
// window on it, switching the Source folder to it, and the background facts
// pass handing its findings back, each beside the model doing the same
// without a window (the plain folder scan, the bare hand-backs), measured in
// the same run.

#include "ui/ContentView.hpp"
#include "ui/SourceList.hpp"
#include "ui/UiFakes.hpp"

#include "LoopFolder.hpp"

#include <QApplication>
#include <QDir>

#include <benchmark/benchmark.h>

#include <iostream>
#include <memory>

namespace {

using namespace marquetry;

const std::string loopPath = MARQUETRY_TEST_LOOPS_DIR "/amen_10s_s16.wav";
constexpr int packFiles = 10'000;
const QSize windowSize(1180, 860);

// Lets the window lay out and paint what changed, as the event loop would
// before the next input: the list's layout runs on a zero timer, and the
// paints it asks for are posted after it.
void settle() {
    for (int i = 0; i < 3; ++i)
        QApplication::processEvents();
}

// A temporary home whose Source folder holds the pack, beside an empty
// folder to switch away from.
struct Pack {
    ui::test::FakePlatform platform;
    std::string emptyFolder = platform.home() + "/Empty";

    explicit Pack(int files) {
        bench::writeSmallLoops(platform.sourceFolder(), files, loopPath);
        QDir().mkpath(QString::fromStdString(emptyFolder));
    }
    static Pack& shared() {
        static Pack pack(packFiles);
        return pack;
    }
    static Pack& single() {
        static Pack pack(1);
        return pack;
    }
};

// A window on `pack`, shown at the size of a roomy screen, its first facts
// pass dropped unread.
std::unique_ptr<ui::ContentView> openWindow(Pack& pack) {
    auto view = std::make_unique<ui::ContentView>(pack.platform.platform(), pack.platform.audioFileChooser());
    view->resize(windowSize);
    view->show();
    settle();
    pack.platform.tasks.background.clear();
    return view;
}

bool showsEveryFile(const ui::ContentView& view, int files) {
    const auto* list = view.findChild<ui::SourceList*>(QStringLiteral("sourceList"));
    return list != nullptr && list->model()->rowCount() == files;
}

// The baseline: the model alone switching from an empty folder to the pack,
// its facts pass queued as the window queues it but never run.
void scanOnly(benchmark::State& state) {
    Pack& pack = Pack::shared();
    model::AppModel app(pack.platform.platform());
    app.readSourceFactsInBackground();
    for (auto _ : state) {
        state.PauseTiming();
        app.setSourceDir(pack.emptyFolder);
        app.refreshFiles();
        pack.platform.tasks.background.clear();
        state.ResumeTiming();
        app.setSourceDir(pack.platform.sourceFolder());
        app.refreshFiles();
        benchmark::DoNotOptimize(app.wavFiles().data());
    }
    pack.platform.tasks.background.clear();
    state.SetItemsProcessed(state.iterations() * packFiles);
}

// The same switch in the open window, until the list is laid out and painted.
void windowSwitch(benchmark::State& state) {
    Pack& pack = Pack::shared();
    const std::unique_ptr<ui::ContentView> view = openWindow(pack);
    model::AppModel& app = view->model();
    for (auto _ : state) {
        state.PauseTiming();
        app.setSourceDir(pack.emptyFolder);
        app.refreshFiles();
        pack.platform.tasks.background.clear();
        settle();
        state.ResumeTiming();
        app.setSourceDir(pack.platform.sourceFolder());
        app.refreshFiles();
        settle();
    }
    pack.platform.tasks.background.clear();
    if (!showsEveryFile(*view, packFiles))
        state.SkipWithError("the list does not show every file");
    state.SetItemsProcessed(state.iterations() * packFiles);
}

// A new window on `pack`, from nothing until it is painted.
void windowOpen(benchmark::State& state, Pack& pack, int files) {
    std::unique_ptr<ui::ContentView> view;
    for (auto _ : state) {
        state.PauseTiming();
        view.reset();
        pack.platform.tasks.background.clear();
        state.ResumeTiming();
        view = std::make_unique<ui::ContentView>(pack.platform.platform(), pack.platform.audioFileChooser());
        view->resize(windowSize);
        view->show();
        settle();
    }
    if (!showsEveryFile(*view, files))
        state.SkipWithError("the list does not show every file");
    view.reset();
    pack.platform.tasks.background.clear();
}

// Everything a facts pass over the pack hands back to the main thread (the
// headers of every file, then their tempo), applied to `app` and, with a
// window, painted. The pass's own work on its worker runs untimed first.
void factsHandBacks(benchmark::State& state, model::AppModel& app, model::test::FakeTaskRunner& tasks) {
    std::size_t handBacks = 0;
    for (auto _ : state) {
        state.PauseTiming();
        app.refreshFiles(); // the same files: a new pass over them
        while (tasks.runBackground()) {
        }
        handBacks = tasks.main.size();
        settle();
        state.ResumeTiming();
        while (tasks.runMain()) {
        }
        settle();
    }
    state.counters["handBacks"] = static_cast<double>(handBacks);
    state.SetItemsProcessed(state.iterations() * packFiles);
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    // A window nobody sees: the time is the window's, not a display's.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    try {
        benchmark::RegisterBenchmark("BM_Scan/10000files", scanOnly)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_WindowSwitchFolder/10000files", windowSwitch)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_WindowOpen/10000files", [](benchmark::State& s) {
            windowOpen(s, Pack::shared(), packFiles);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_WindowOpen/1file", [](benchmark::State& s) {
            windowOpen(s, Pack::single(), 1);
        })->Unit(benchmark::kMillisecond);
        // A handful of passes: each costs a quarter of a second of untimed
        // reading first.
        benchmark::RegisterBenchmark("BM_FactsHandBacks/10000files/model", [](benchmark::State& s) {
            Pack& pack = Pack::shared();
            model::AppModel app(pack.platform.platform());
            app.readSourceFactsInBackground();
            factsHandBacks(s, app, pack.platform.tasks);
        })->Unit(benchmark::kMillisecond)->Iterations(10);
        benchmark::RegisterBenchmark("BM_FactsHandBacks/10000files/window", [](benchmark::State& s) {
            Pack& pack = Pack::shared();
            const std::unique_ptr<ui::ContentView> view = openWindow(pack);
            factsHandBacks(s, view->model(), pack.platform.tasks);
        })->Unit(benchmark::kMillisecond)->Iterations(10);

        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << "marquetry_window_bench: " << error.what() << '\n';
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
