// Renders the main window in its typical states to PNG files, for people to
// look at: marquetry_screenshots OUTPUT_FOLDER. Runs on any Qt platform,
// the offscreen one included.

#include "UiFakes.hpp"

#include "ui/ContentView.hpp"
#include "ui/HelpPanels.hpp"
#include "ui/MainWindow.hpp"
#include "ui/MarquetryHelpView.hpp"

#include <QApplication>
#include <QDir>
#include <QTextStream>

#include <chrono>
#include <functional>
#include <thread>

using namespace marquetry;

namespace {

struct Shot {
    const char* file;
    QSize size;
    std::vector<std::string> loops;
    std::function<void(ui::ContentView&, ui::test::FakePlatform&)> prepare;
};

void generate(ui::ContentView& view, ui::test::FakePlatform& platform) {
    view.model().generate();
    platform.tasks.drain();
}

bool save(QWidget& widget, const QDir& folder, const char* file) {
    const QString path = folder.filePath(QLatin1String(file));
    if (!widget.grab().save(path)) {
        QTextStream(stderr) << "cannot write " << path << '\n';
        return false;
    }
    QTextStream(stdout) << widget.width() << 'x' << widget.height() << ' ' << path << '\n';
    return true;
}

// The help window on two of its topics.
bool renderHelp(const QDir& folder) {
    ui::HelpPanels::shared().showHelp();
    QWidget* window = ui::HelpPanels::shared().helpWindow();
    auto* view = window->findChild<ui::MarquetryHelpView*>();
    QApplication::processEvents();
    bool ok = save(*window, folder, "7-help-welcome.png");
    view->setSelected(ui::HelpTopic::chopModels);
    QApplication::processEvents();
    ok = save(*window, folder, "8-help-chop-models.png") && ok;
    view->setSelected(ui::HelpTopic::optionsHistoryShortcuts);
    QApplication::processEvents();
    ok = save(*window, folder, "8-help-options-history-shortcuts.png") && ok;
    window->close();
    return ok;
}

// The whole window, menus included, at 800 x 600: the content scrolls.
bool renderSmallWindow(const QDir& folder, const std::vector<std::string>& loops) {
    ui::test::FakePlatform platform;
    for (const std::string& loop : loops)
        platform.addLoop(loop);
    ui::MainWindow window(platform.platform(), platform.audioFileChooser());
    window.show();
    window.resize(800, 600);
    generate(window.content(), platform);
    QApplication::processEvents();
    return save(window, folder, "9-small-window-scrolls.png");
}

// A long run caught part way, over the variations of the run before: the
// worker renders on a thread of its own until a good part is done, the
// window reads its progress, and after the picture the run is cancelled.
bool renderGenerating(const QDir& folder, const std::vector<std::string>& loops) {
    ui::test::FakePlatform platform;
    for (const std::string& loop : loops)
        platform.addLoop(loop);
    ui::ContentView view(platform.platform(), platform.audioFileChooser());
    view.resize(1180, 860);
    view.show();
    model::AppModel& model = view.model();
    generate(view, platform);
    model.changeSettings([](model::RunSettings& s) {
        s.plan.variationCount = 100;
        s.plan.chopModel = chop::ChopModel::dice;
        s.plan.fit = chop::FitMode::stretch;
    });
    model.generate();
    std::thread worker(std::move(platform.tasks.background.back()));
    platform.tasks.background.clear();
    while (model.generationProgress().done < 37) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        model.readGenerationProgress();
    }
    QApplication::processEvents();
    const bool ok = save(view, folder, "3-generating.png");
    model.cancelGeneration();
    worker.join();
    return ok;
}

bool render(const Shot& shot, const QDir& folder) {
    ui::test::FakePlatform platform;
    for (const std::string& loop : shot.loops)
        platform.addLoop(loop, loop == "Think Break 96.wav" ? "breakbeat_s16.wav" : "amen_s16.wav");
    ui::ContentView view(platform.platform(), platform.audioFileChooser());
    view.resize(view.minimumSizeHint().expandedTo(view.minimumSize()).expandedTo(shot.size));
    view.show();
    if (shot.prepare)
        shot.prepare(view, platform);
    QApplication::processEvents();
    return save(view, folder, shot.file);
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc != 2) {
        QTextStream(stderr) << "usage: marquetry_screenshots OUTPUT_FOLDER\n";
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    if (!folder.mkpath(QStringLiteral("."))) {
        QTextStream(stderr) << "cannot create " << folder.path() << '\n';
        return 1;
    }

    const std::vector<std::string> loops{"Amen Break 170.wav", "Think Break 96.wav", "amen_alt.wav"};
    const QSize roomy(1180, 860);
    const std::vector<Shot> shots{
        {"1-empty.png", roomy, {}, nullptr},
        {"2-loaded.png", roomy, loops, nullptr},
        // Every loop's length, format and tempo read in the background; a
        // file the reader refuses is marked.
        {"2-source-facts.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             QFile broken(QString::fromStdString(platform.sourceFolder() + "/broken.wav"));
             if (broken.open(QIODevice::WriteOnly))
                 broken.write(QByteArray(64, 'x'));
             broken.close();
             view.model().refreshFiles();
             platform.tasks.drain();
         }},
        {"3-generated.png", roomy, loops, generate},
        {"3-generated-smallest.png", {}, loops, generate},
        // The seed of the run copied back into the Seed field, ready to export with a manifest.
        {"3-seed-reused.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             generate(view, platform);
             view.model().changeSettings([&](model::RunSettings& s) { s.seedText = std::to_string(view.model().lastRun()->seed); });
             view.model().changeSettings([&](model::RunSettings& s) { s.exportOptions.manifest = true; });
         }},
        {"4-playing.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             generate(view, platform);
             platform.players.currentTime = 0.74;
             platform.players.duration = 2.0;
             view.model().togglePlayback(view.model().generatedLoops().at(1));
         }},
        {"5-source-playing.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             platform.players.currentTime = 1.3;
             platform.players.duration = 2.0;
             view.model().setMashupMode(true);
             view.model().toggleMashupMembership(view.model().wavFiles().at(0), true);
             view.model().toggleMashupMembership(view.model().wavFiles().at(2), true);
             view.model().toggleSourcePlayback();
         }},
        // Back to the first of two runs, its ticks restored, with the focus on
        // its first variation, and Keep both chosen for the export.
        {"3-history-back-keep-both.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             view.activateWindow();
             generate(view, platform);
             view.model().toggleSelection(view.model().generatedLoops().at(1).id, false);
             view.model().changeSettings([&](model::RunSettings& s) { s.seedText = std::to_string(7); });
             generate(view, platform);
             view.model().goBack();
             platform.tasks.drain();
             view.model().changeSettings([&](model::RunSettings& s) { s.exportOptions.keepExisting = true; });
         }},
        // The smallest window with the Glitch row and a warning under the
        // status line: the options stay whole, the panels give way.
        {"6-options-smallest.png", {}, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             view.resize(1040, 700);
             view.model().changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chop::ChopModel::glitch; });
             view.model().changeSettings([&](model::RunSettings& s) { s.plan.joinFadeMs = 5; });
             view.model().changeSettings([&](model::RunSettings& s) { s.plan.fit = chop::FitMode::stretch; });
             platform.addLoop("Think Break 96 u8.wav", "amen_u8.wav");
             view.model().refreshFiles();
             view.model().setMashupMode(true);
             for (const std::string& path : view.model().wavFiles())
                 view.model().toggleMashupMembership(path, true);
             generate(view, platform);
         }},
        {"6-glitch.png", roomy, loops,
         [](ui::ContentView& view, ui::test::FakePlatform& platform) {
             view.model().changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chop::ChopModel::glitch; });
             view.model().changeSettings([&](model::RunSettings& s) { s.seedText = "marquetry"; });
             generate(view, platform);
         }},
    };
    bool ok = true;
    for (const Shot& shot : shots)
        ok = render(shot, folder) && ok;
    ok = renderHelp(folder) && ok;
    ok = renderSmallWindow(folder, loops) && ok;
    ok = renderGenerating(folder, loops) && ok;
    return ok ? 0 : 1;
}
