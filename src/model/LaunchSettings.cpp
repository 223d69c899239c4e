#include "model/LaunchSettings.hpp"

#include "model/AppModel.hpp"
#include "model/FileSystem.hpp"

#include <filesystem>
#include <system_error>
#include <utility>

namespace marquetry::model {

namespace {

std::filesystem::path absoluteNormal(const std::string& text) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(pathFromText(text), error);
    if (error)
        return pathFromText(text);
    path = path.lexically_normal();
    // "loops/" names the same folder as "loops", which is how the scan spells it.
    return path.has_filename() || !path.has_relative_path() ? path : path.parent_path();
}

} // namespace

LaunchSource launchSource(const std::optional<std::string>& sourceDir, const std::optional<std::string>& openedFile) {
    if (openedFile && !openedFile->empty()) {
        const std::filesystem::path file = absoluteNormal(*openedFile);
        return {pathText(file.parent_path()), pathText(file)};
    }
    if (sourceDir)
        return {pathText(absoluteNormal(*sourceDir)), std::nullopt};
    return {};
}

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
