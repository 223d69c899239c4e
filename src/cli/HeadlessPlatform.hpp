#pragma once

#include "model/Platform.hpp"
#include "playback/AudioOutput.hpp"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace marquetry::cli {

/// Settings that live and die with the process: the user's stored folders
/// are neither read nor overwritten by the command line.
class MemorySettings final : public model::SettingsStore {
public:
    explicit MemorySettings(std::map<std::string, std::string> values);
    std::optional<std::string> string(const std::string& key) const override;
    void setString(const std::string& key, const std::string& value) override;

private:
    std::map<std::string, std::string> values_;
};

/// No one is there to answer a dialog: every choice is cancelled.
class CancellingFolderChooser final : public model::FolderChooser {
public:
    std::optional<std::string> chooseFolder(const Options& options) override;
};

/// Reports every folder as not shown.
class AbsentFileBrowser final : public model::FileBrowser {
public:
    bool openFolder(const std::string& path) override;
};

/// Refuses every player: createPlayer throws std::runtime_error.
class SilentAudioPlayers final : public playback::AudioPlayerFactory {
public:
    std::unique_ptr<playback::AudioPlayer> createPlayer(const audio::Bytes& wavImage) override;
};

/// Timers that never tick; nothing previews, so nothing needs progress.
class IdleTimers final : public playback::TimerFactory {
public:
    std::unique_ptr<playback::RepeatingTimer> startRepeating(double intervalSeconds,
                                                             std::function<void()> tick) override;
};

/// The command line's event loop: background work gets a thread of its own,
/// main-thread work waits in a queue until the main thread runs it with
/// runUntil. Destruction joins every background thread.
class MainLoop final : public model::TaskRunner {
public:
    MainLoop() = default;
    ~MainLoop() override;

    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;

    /// Thread safe.
    void runInBackground(std::function<void()> work) override;
    /// Thread safe.
    void runOnMain(std::function<void()> work) override;

    /// Runs queued main-thread work in order, waiting for more while
    /// `finished` is false; `finished` is asked before each item. Main thread
    /// only; blocks for good if nothing will ever be queued.
    void runUntil(const std::function<bool()>& finished);

    /// Waits until every background thread has ended. Main thread only.
    void joinBackgroundThreads();

private:
    std::mutex mutex_;
    std::condition_variable queued_;
    std::deque<std::function<void()>> mainQueue_;
    std::vector<std::thread> threads_;
};

} // namespace marquetry::cli
