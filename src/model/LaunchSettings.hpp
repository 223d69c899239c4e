#pragma once

#include "model/Platform.hpp"

#include <optional>
#include <string>

namespace marquetry::model {

/// Where one launch starts: the source folder it reads instead of the stored
/// one, and the loop it selects first.
struct LaunchSource {
    std::optional<std::string> sourceDir;
    std::optional<std::string> selectedFile;

    bool operator==(const LaunchSource&) const = default;
};

/// The start asked for by `sourceDir` (a folder named with --source-dir) and
/// `openedFile` (a loop the desktop asked the program to open): the opened
/// loop's folder with that loop selected, else the named folder, else
/// neither. Relative paths are taken from the current directory; both come
/// back absolute and without "." or ".." parts, so that "Save as Default"
/// never stores a path that depends on where the program started. A path the
/// system cannot make absolute is passed on as given.
LaunchSource launchSource(const std::optional<std::string>& sourceDir, const std::optional<std::string>& openedFile);

/// The stored settings as seen by one launch: a source folder given on the
/// command line answers reads of the stored default source folder, without
/// being stored. Every write goes through, so "Save as Default" still saves.
/// Thread safety is that of the wrapped store.
class LaunchSettings final : public SettingsStore {
public:
    /// `stored` must outlive this object; no `sourceDir` means every read
    /// goes to `stored`.
    LaunchSettings(SettingsStore& stored, std::optional<std::string> sourceDir);

    /// The launch's source folder under AppModel::sourceDirKey when there is
    /// one, else what `stored` holds under `key`.
    std::optional<std::string> string(const std::string& key) const override;
    /// Writes through to `stored`, the source folder key included.
    void setString(const std::string& key, const std::string& value) override;

private:
    SettingsStore& stored_;
    std::optional<std::string> sourceDir_;
};

} // namespace marquetry::model
