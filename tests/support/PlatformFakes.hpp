#pragma once

// The model's platform without a toolkit: settings in memory, dialogs that
// answer what the test scripted, and a task queue the test runs step by step.

#include "model/Platform.hpp"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace marquetry::model::test {

struct FakeSettings : SettingsStore {
    std::map<std::string, std::string> values;
    std::optional<std::string> string(const std::string& key) const override {
        return values.contains(key) ? std::optional(values.at(key)) : std::nullopt;
    }
    void setString(const std::string& key, const std::string& value) override { values[key] = value; }
};

struct FakeFolderChooser : FolderChooser {
    std::optional<std::string> answer;
    std::vector<Options> asked;
    std::optional<std::string> chooseFolder(const Options& options) override {
        asked.push_back(options);
        return answer;
    }
};

struct FakeFileBrowser : FileBrowser {
    std::vector<std::string> opened;
    bool starts = true; ///< false: as on a desktop with no file manager
    bool openFolder(const std::string& path) override {
        opened.push_back(path);
        return starts;
    }
};

/// Nothing runs on its own: the test plays the worker and the main loop.
struct FakeTaskRunner : TaskRunner {
    std::deque<std::function<void()>> background, main;
    void runInBackground(std::function<void()> work) override { background.push_back(std::move(work)); }
    void runOnMain(std::function<void()> work) override { main.push_back(std::move(work)); }
    static bool runFirst(std::deque<std::function<void()>>& queue) {
        if (queue.empty())
            return false;
        auto work = std::move(queue.front());
        queue.pop_front();
        work();
        return true;
    }
    bool runBackground() { return runFirst(background); }
    bool runMain() { return runFirst(main); }
    void drain() {
        while (runBackground() || runMain()) {
        }
    }
};

} // namespace marquetry::model::test
