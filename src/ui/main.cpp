#include "model/LaunchSettings.hpp"
#include "model/SystemServices.hpp"
#include "ui/HelpPanels.hpp"
#include "ui/MainWindow.hpp"
#include "ui/QtAudioPlayer.hpp"
#include "ui/QtPlatform.hpp"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenuBar>

#include <exception>
#include <iostream>
#include <optional>
#include <string>
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

/// The folder given with --source-dir, made absolute so that "Save as
/// Default" never stores a path that depends on where the program started.
/// Exits with usage text on --help or an unknown option.
std::optional<std::string> launchSourceDir(const QApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Marquetry turns drum loops into new breaks."));
    parser.addHelpOption();
    const QCommandLineOption sourceDir(
        QStringLiteral("source-dir"),
        QStringLiteral("Use DIR as the source folder for this launch, without storing it."), QStringLiteral("DIR"));
    parser.addOption(sourceDir);
    parser.process(app);
    if (!parser.isSet(sourceDir))
        return std::nullopt;
    const QString absolute = QDir::cleanPath(QFileInfo(parser.value(sourceDir)).absoluteFilePath());
    return QFile::encodeName(absolute).toStdString();
}

} // namespace

int main(int argc, char** argv) {
    QApplication::setOrganizationName(QStringLiteral("Marquetry"));
    QApplication::setApplicationName(QStringLiteral("Marquetry"));
    QApplication app(argc, argv);
    try {
        QtServices services(launchSourceDir(app));
        ui::MainWindow window(services.platform(), &ui::chooseAudioFiles);
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
