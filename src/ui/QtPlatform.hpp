#pragma once

#include "model/Platform.hpp"

#include <QSettings>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace marquetry::ui {

/// Settings in QSettings (organisation and application names as main sets
/// them), under the keys the model names. Main thread only.
class QtSettingsStore final : public model::SettingsStore {
public:
    std::optional<std::string> string(const std::string& key) const override;
    /// Written through to disk at once, so a crash loses nothing.
    void setString(const std::string& key, const std::string& value) override;

private:
    mutable QSettings settings_;
};

/// QFileDialog, folders only, modal over the active window. Main thread only.
class QtFolderChooser final : public model::FolderChooser {
public:
    std::optional<std::string> chooseFolder(const Options& options) override;
};

/// QFileDialog for audio files to import, several at once, starting in
/// `folder`, modal over the active window. The chosen files' paths, or none
/// when the user cancels. Main thread only.
std::vector<std::string> chooseAudioFiles(const std::string& folder);

/// QDesktopServices. Main thread only.
class QtFileBrowser final : public model::FileBrowser {
public:
    bool openFolder(const std::string& path) override;
};

/// Precise QTimers on the main thread. Main thread only.
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
    QtTaskRunner() = default;
    ~QtTaskRunner() override;

    QtTaskRunner(const QtTaskRunner&) = delete;
    QtTaskRunner& operator=(const QtTaskRunner&) = delete;

    /// Thread safe. Joins runs that have finished meanwhile.
    void runInBackground(std::function<void()> work) override;
    void runWhenIdle(std::function<void()> work) override;
    /// Thread safe; needs a QCoreApplication.
    void runOnMain(std::function<void()> work) override;

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };

    std::mutex mutex_;
    std::vector<Worker> workers_;
};

} // namespace marquetry::ui
