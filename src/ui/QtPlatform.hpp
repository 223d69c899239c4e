#pragma once

#include "model/Platform.hpp"

#include <QObject>
#include <QSettings>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace marquetry::ui {

/// Settings in QSettings, under the keys the model names.
class QtSettingsStore final : public model::SettingsStore {
public:
    std::optional<std::string> string(const std::string& key) const override;
    void setString(const std::string& key, const std::string& value) override;

private:
    mutable QSettings settings_;
};

/// QFileDialog, folders only.
class QtFolderChooser final : public model::FolderChooser {
public:
    std::optional<std::string> chooseFolder(const Options& options) override;
};

/// QDesktopServices.
class QtFileBrowser final : public model::FileBrowser {
public:
    bool openFolder(const std::string& path) override;
};

/// QTimer on the main thread.
class QtTimerFactory final : public playback::TimerFactory {
public:
    std::unique_ptr<playback::RepeatingTimer> startRepeating(double intervalSeconds,
                                                             std::function<void()> tick) override;
};

/// One std::thread per background run; the way back is a queued call into
/// the Qt event loop. Joins every thread it started when destroyed, so work
/// never outlives the objects it hands back to.
class QtTaskRunner final : public model::TaskRunner {
public:
    ~QtTaskRunner() override;
    void runInBackground(std::function<void()> work) override;
    void runOnMain(std::function<void()> work) override;

private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

} // namespace marquetry::ui
