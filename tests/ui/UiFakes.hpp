#pragma once

// The model's platform as the window's tests and screenshots see it: the
// shared fakes (settings in memory, a task queue drained by hand, scripted
// players and timers), a clock the test sets, and real files under a
// temporary home whose Source and Output folders the settings point at.

#include "support/FakeAudioOutput.hpp"
#include "support/PlatformFakes.hpp"
#include "model/AppModel.hpp"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace marquetry::ui::test {

/// Must outlive every model made from `platform()`.
class FakePlatform {
public:
    FakePlatform() {
        if (!home_.isValid() || !QDir(home_.path()).mkpath("Source") || !QDir(home_.path()).mkpath("Output"))
            throw std::runtime_error("cannot create a temporary home folder");
        settings.values[model::AppModel::sourceDirKey] = sourceFolder();
        settings.values[model::AppModel::outputDirKey] = outputFolder();
    }

    std::string home() const { return home_.path().toStdString(); }
    std::string sourceFolder() const { return home() + "/Source"; }
    std::string outputFolder() const { return home() + "/Output"; }

    /// Copies the converted drum break `loop` into the source folder as `name`.
    void addLoop(const std::string& name, const std::string& loop = "amen_s16.wav") {
        if (!QFile::copy(QString::fromStdString(MARQUETRY_TEST_LOOPS_DIR "/" + loop),
                         QString::fromStdString(sourceFolder() + "/" + name)))
            throw std::runtime_error("cannot copy test loop " + loop);
    }

    model::Platform platform() {
        return {settings, chooser, browser, tasks, players, timers, home(), [this] { return now; },
                [this] {
                    playback::Uuid id{};
                    id[14] = static_cast<std::uint8_t>(++uuids_ >> 8);
                    id[15] = static_cast<std::uint8_t>(uuids_);
                    return id;
                }};
    }

    /// The window's import dialog: answers `importAnswer` and notes the
    /// folder each dialog was to open in.
    std::function<std::vector<std::string>(const std::string&)> audioFileChooser() {
        return [this](const std::string& folder) {
            importFoldersAsked.push_back(folder);
            return importAnswer;
        };
    }

    model::test::FakeSettings settings;
    model::test::FakeFolderChooser chooser;
    model::test::FakeFileBrowser browser;
    model::test::FakeTaskRunner tasks;
    playback::test::FakeAudioPlayerFactory players;
    playback::test::FakeTimerFactory timers;
    std::int64_t now = 1'700'000'000; ///< the clock that blank seeds resolve from
    std::vector<std::string> importAnswer;
    std::vector<std::string> importFoldersAsked;

private:
    QTemporaryDir home_;
    int uuids_ = 0;
};

} // namespace marquetry::ui::test
