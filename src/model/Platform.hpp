#pragma once

#include "playback/AudioOutput.hpp"
#include "playback/PlaybackTarget.hpp"

#include <cstdint>
#include <functional>
#include <utility>
#include <optional>
#include <string>

namespace marquetry::model {

/// Per-user string settings that survive restarts.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    /// The value stored under `key`, or none.
    virtual std::optional<std::string> string(const std::string& key) const = 0;
    virtual void setString(const std::string& key, const std::string& value) = 0;
};

/// A modal dialog that picks one existing folder; files are not selectable.
class FolderChooser {
public:
    struct Options {
        bool canCreateFolders = false;
        std::string initialFolder;
    };
    virtual ~FolderChooser() = default;
    /// The chosen folder's path, or none when the user cancels.
    virtual std::optional<std::string> chooseFolder(const Options& options) = 0;
};

/// Shows a folder in the desktop's file browser.
class FileBrowser {
public:
    virtual ~FileBrowser() = default;
    /// False when the folder could not be shown; callers may ignore it.
    virtual bool openFolder(const std::string& path) = 0;
};

/// Background work and the way back to the main thread.
class TaskRunner {
public:
    virtual ~TaskRunner() = default;
    /// Runs `work` on a thread of its own, at default priority. Thread safe.
    virtual void runInBackground(std::function<void()> work) = 0;
    /// The same for work nobody waits for, which should take the processor
    /// only when nothing else wants it; by default as runInBackground.
    virtual void runWhenIdle(std::function<void()> work) { runInBackground(std::move(work)); }
    /// Runs `work` on the main thread, after the current event. Thread safe.
    virtual void runOnMain(std::function<void()> work) = 0;
};

/// Everything the model reaches outside itself. Main thread only, except
/// `unixSeconds` and `randomUuid`, which generation calls on its worker
/// thread and which must therefore be thread safe.
struct Platform {
    SettingsStore& settings;
    FolderChooser& folderChooser;
    FileBrowser& fileBrowser;
    TaskRunner& tasks;
    playback::AudioPlayerFactory& audioPlayers;
    playback::TimerFactory& timers;
    /// The current user's home folder, for tilde expansion.
    std::string homeFolder;
    /// Wall clock in whole seconds since 1970 (UTC).
    std::function<std::int64_t()> unixSeconds;
    /// A fresh version-4 UUID from the operating system's randomness.
    std::function<playback::Uuid()> randomUuid;
};

} // namespace marquetry::model
