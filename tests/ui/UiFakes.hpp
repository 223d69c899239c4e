#pragma once

// The model's platform as the window's tests and screenshots see it: settings
// in memory that point at a temporary home, a task queue the caller drains
// step by step, players whose progress is scripted and a timer that ticks
// only when told. The file system is real, under the temporary home.

#include "support/PlatformFakes.hpp"
#include "support/FakeAudioOutput.hpp"
#include "model/AppModel.hpp"

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <atomic>
#include <deque>
#include <map>
#include <stdexcept>

namespace marquetry::ui::test {

/// A temporary home with a source and an output folder, and the fakes of a
/// platform whose settings point at them. Must outlive every model made from
/// `platform()`.
class FakePlatform {
public:
    FakePlatform() {
        if (!home_.isValid())
            throw std::runtime_error("cannot create a temporary home folder");
        QDir(home_.path()).mkpath(QStringLiteral("Source"));
        QDir(home_.path()).mkpath(QStringLiteral("Output"));
        settings.values[model::AppModel::sourceDirKey] = sourceFolder();
        settings.values[model::AppModel::outputDirKey] = outputFolder();
    }

    std::string home() const { return home_.path().toStdString(); }
    std::string sourceFolder() const { return home() + "/Source"; }
    std::string outputFolder() const { return home() + "/Output"; }

    /// Copies one of the converted drum breaks into the source folder under
    /// `name`; returns its path.
    std::string addLoop(const std::string& name, const std::string& loop = "amen_s16.wav") {
        const std::string path = sourceFolder() + "/" + name;
        const QString from = QStringLiteral(MARQUETRY_TEST_LOOPS_DIR "/") + QString::fromStdString(loop);
        if (!QFile::copy(from, QString::fromStdString(path)))
            throw std::runtime_error("cannot copy test loop " + from.toStdString());
        return path;
    }

    model::Platform platform() {
        return model::Platform{
            .settings = settings,
            .folderChooser = chooser,
            .fileBrowser = browser,
            .tasks = tasks,
            .audioPlayers = players,
            .timers = timers,
            .homeFolder = home(),
            .unixSeconds = [] { return std::int64_t{1'700'000'000}; },
            .randomUuid = [this] {
                playback::Uuid id{};
                const int n = ++uuids_;
                id[15] = static_cast<std::uint8_t>(n);
                id[14] = static_cast<std::uint8_t>(n >> 8);
                return id;
            },
        };
    }

    model::test::FakeSettings settings;
    model::test::FakeFolderChooser chooser;
    model::test::FakeFileBrowser browser;
    model::test::FakeTaskRunner tasks;
    playback::test::FakeAudioPlayerFactory players;
    playback::test::FakeTimerFactory timers;

private:
    QTemporaryDir home_;
    std::atomic<int> uuids_{0};
};

} // namespace marquetry::ui::test
