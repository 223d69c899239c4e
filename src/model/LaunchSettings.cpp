#include "model/LaunchSettings.hpp"

#include "model/AppModel.hpp"

#include <utility>

namespace marquetry::model {

LaunchSettings::LaunchSettings(SettingsStore& stored, std::optional<std::string> sourceDir)
    : stored_(stored), sourceDir_(std::move(sourceDir)) {}

std::optional<std::string> LaunchSettings::string(const std::string& key) const {
    if (sourceDir_ && key == AppModel::sourceDirKey)
        return sourceDir_;
    return stored_.string(key);
}

void LaunchSettings::setString(const std::string& key, const std::string& value) {
    stored_.setString(key, value);
}

} // namespace marquetry::model
