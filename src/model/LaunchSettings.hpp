#pragma once

#include "model/Platform.hpp"

#include <optional>
#include <string>

namespace marquetry::model {

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
