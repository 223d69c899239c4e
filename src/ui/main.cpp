#include "model/LaunchSettings.hpp"
#include "model/SystemServices.hpp"
#include "ui/HelpPanels.hpp"
#include "ui/MainWindow.hpp"
#include "ui/QtAudioPlayer.hpp"
#include "ui/QtPlatform.hpp"

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QMenuBar>

#include <algorithm>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace marquetry;

/// The Qt side of everything the model reaches outside itself. Declared
/// before the window in main() so that it outlives the model the window owns.
struct QtServices {
    explicit QtServices(std::optional<std::string> launchSourceDir)
        : settings(storedSettings, std::move(launchSourceDir)) {}

    model::Platform platform() {
        return {settings, folderChooser, fileBrowser, tasks, audioPlayers, timers,
                model::systemHomeFolder(), &model::systemUnixSeconds, &model::osRandomUuid};
    }

    ui::QtSettingsStore storedSettings;
    model::LaunchSettings settings;
    ui::QtFolderChooser folderChooser;
    ui::QtFileBrowser fileBrowser;
    ui::QtTaskRunner tasks;
    ui::QtAudioPlayerFactory audioPlayers;
    ui::QtTimerFactory timers;
};

/// The source folder and first selection asked for on the command line:
/// --source-dir, or a loop the desktop's "Open With" hands over.
/// Exits with the usage text on --help, the version on --version, and an
/// error on an unknown option.
model::LaunchSource launchSource(const QCoreApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Marquetry turns drum loops into new breaks."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption sourceDir(
        QStringLiteral("source-dir"),
        QStringLiteral("Use DIR as the source folder for this launch, without storing it."), QStringLiteral("DIR"));
    parser.addOption(sourceDir);
    parser.addPositionalArgument(
        QStringLiteral("FILE"),
        QStringLiteral("A WAV loop to open: its folder is the source folder for this launch and the loop is selected."),
        QStringLiteral("[FILE]"));
    parser.process(app);
    const auto text = [](const QString& value) { return QFile::encodeName(value).toStdString(); };
    std::optional<std::string> folder;
    if (parser.isSet(sourceDir))
        folder = text(parser.value(sourceDir));
    std::optional<std::string> file;
    if (!parser.positionalArguments().isEmpty())
        file = text(parser.positionalArguments().constFirst());
    return model::launchSource(folder, file);
}

} // namespace

int main(int argc, char** argv) {
    QApplication::setOrganizationName(QStringLiteral("Marquetry"));
    QApplication::setApplicationName(QStringLiteral("Marquetry"));
    QApplication::setApplicationVersion(QStringLiteral(MARQUETRY_VERSION));
    // Lets the desktop match the window to its entry, and so to its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral(MARQUETRY_APP_ID));
    // Asking for the usage or the version needs no display, as with any
    // command-line tool: the parser prints and exits before a window exists.
    const bool answerOnly = std::any_of(argv + 1, argv + argc, [](std::string_view argument) {
        return argument == "--help" || argument == "-h" || argument == "-?" || argument == "--help-all"
               || argument == "--version" || argument == "-v";
    });
    if (answerOnly) {
        const QCoreApplication core(argc, argv);
        launchSource(core);
    }
    QApplication app(argc, argv);
    try {
        model::LaunchSource launch = launchSource(app);
        QtServices services(std::move(launch.sourceDir));
        ui::MainWindow window(services.platform(), &ui::chooseAudioFiles, std::move(launch.selectedFile));
        ui::addHelpMenu(*window.menuBar());
        window.show();
        window.raise();
        window.activateWindow();
        return QApplication::exec();
    } catch (const std::exception& error) {
        // The model reports through its status line; this catches only the
        // platform's own failures, such as a thread that cannot be started.
        std::cerr << "marquetry: " << error.what() << '\n';
        return 1;
    }
}
