#pragma once

// The platform as the model's tests see it: in-memory settings, scripted
// dialogs, a task queue the test runs step by step, recording players and
// timers, a fixed clock and counting uuids. Files are real, under a
// temporary home folder.

#include "support/FakeAudioOutput.hpp"
#include "support/PlatformFakes.hpp"
#include "support/TestFiles.hpp"
#include "support/WavImageBuilder.hpp"
#include "audio/WavReader.hpp"
#include "model/AppModel.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace marquetry::model::test {

namespace fs = std::filesystem;
using Field = AppModel::Field;
using audio::test::namesIn;

inline playback::Uuid uuidNumber(int n) {
    playback::Uuid id{};
    id[14] = static_cast<std::uint8_t>(n >> 8);
    id[15] = static_cast<std::uint8_t>(n);
    return id;
}

class ModelTest : public ::testing::Test {
protected:
    static constexpr std::int64_t now = 1'700'000'000;

    // A path that escapes tilde expansion lands in the home folder, not in
    // the checkout.
    ModelTest() { fs::current_path(home); }
    ~ModelTest() override {
        model.reset();
        fs::current_path(workingFolder);
    }

    std::string sourceFolder() const { return home + "/Music/Marquetry/Source"; }
    std::string outputFolder() const { return home + "/Music/Marquetry/Output"; }

    /// Writes `folder`/`name` (the source folder by default) and returns its path.
    std::string addFile(const std::string& name, const audio::Bytes& bytes, std::string folder = {}) {
        folder = folder.empty() ? sourceFolder() : folder;
        fs::create_directories(folder);
        return audio::test::writeFile(folder + "/" + name, bytes);
    }
    /// One of the drum breaks the build converts, under a test's own name.
    std::string addLoop(const std::string& name, const std::string& loop = "amen_s16.wav", std::string folder = {}) {
        return addFile(name, audio::readWholeFile(audio::test::testLoopPath(loop)), folder);
    }

    AppModel& start() {
        model = std::make_unique<AppModel>(Platform{settings, chooser, browser, tasks, players, timers, home,
                                                    [] { return now; }, [this] { return uuidNumber(++uuids); }});
        model->subscribe([this](const AppModel::Change& change) {
            changes.push_back(change.field);
            if (change.field == Field::sourceFacts || change.field == Field::tempo)
                changedPaths = change.paths;
        });
        return *model;
    }
    void generate() {
        model->generate();
        tasks.drain();
    }

    FakeSettings settings;
    FakeFolderChooser chooser;
    FakeFileBrowser browser;
    FakeTaskRunner tasks;
    playback::test::FakeAudioPlayerFactory players;
    playback::test::FakeTimerFactory timers;
    const fs::path workingFolder = fs::current_path();
    const audio::test::TemporaryFolder temporaryHome;
    const std::string home = temporaryHome.path;
    int uuids = 0;
    std::vector<Field> changes;
    std::vector<std::string> changedPaths; ///< of the last facts or tempo notice
    std::unique_ptr<AppModel> model;
};

} // namespace marquetry::model::test
