// The settings decorator behind the --source-dir launch option.
#include "support/PlatformFakes.hpp"

#include "model/AppModel.hpp"
#include "model/LaunchSettings.hpp"

#include <gtest/gtest.h>

namespace marquetry::model::test {
namespace {

TEST(LaunchSettings, LaunchSourceFolderIsReadButNeverStored) {
    const std::string sourceKey = AppModel::sourceDirKey;
    FakeSettings stored;
    stored.values = {{sourceKey, "/stored/source"}, {AppModel::outputDirKey, "/stored/output"}};

    EXPECT_EQ(LaunchSettings(stored, std::nullopt).string(sourceKey), "/stored/source");
    LaunchSettings launch(stored, "/launch/loops");
    EXPECT_EQ(launch.string(sourceKey), "/launch/loops");
    EXPECT_EQ(launch.string(AppModel::outputDirKey), "/stored/output");
    EXPECT_EQ(launch.string("no such key"), std::nullopt);
    EXPECT_EQ(stored.values[sourceKey], "/stored/source");

    launch.setString(sourceKey, "/saved/source");
    EXPECT_EQ(stored.values[sourceKey], "/saved/source");
    EXPECT_EQ(launch.string(sourceKey), "/launch/loops") << "the launch folder wins for the whole launch";
}

} // namespace
} // namespace marquetry::model::test
