#pragma once

// The model's platform as the window's tests and screenshots see it: settings
// in memory that point at a temporary home, a task queue the caller drains
// step by step, players whose progress is scripted and a timer that ticks
// only when told. The file system is real, under the temporary home.

#include "model/AppModel.hpp"

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <atomic>
#include <deque>
#include <map>
#include <stdexcept>

namespace marquetry::ui::test {

class MemorySettings final : public model::SettingsStore {
public:
    std::map<std::string, std::string> values;
    std::optional<std::string> string(const std::string& key) const override {
        const auto it = values.find(key);
        return it == values.end() ? std::nullopt : std::optional(it->second);
    }
    void setString(const std::string& key, const std::string& value) override { values[key] = value; }
};

class ScriptedFolderChooser final : public model::FolderChooser {
public:
    std::optional<std::string> answer;
    std::optional<std::string> chooseFolder(const Options&) override { return answer; }
};

class RecordingFileBrowser final : public model::FileBrowser {
public:
    std::vector<std::string> opened;
    bool openFolder(const std::string& path) override {
        opened.push_back(path);
        return true;
    }
};

/// Nothing runs by itself, so a test can look at the window while a
/// generation is still under way.
class QueuedTaskRunner final : public model::TaskRunner {
public:
    std::deque<std::function<void()>> background, main;
    void runInBackground(std::function<void()> work) override { background.push_back(std::move(work)); }
    void runOnMain(std::function<void()> work) override { main.push_back(std::move(work)); }

    void drain() {
        while (runFront(background) || runFront(main)) {
        }
    }

private:
    static bool runFront(std::deque<std::function<void()>>& queue) {
        if (queue.empty())
            return false;
        auto work = std::move(queue.front());
        queue.pop_front();
        work();
        return true;
    }
};

/// Players that play nothing and report `currentTime` of `duration`.
class ScriptedPlayerFactory final : public playback::AudioPlayerFactory {
public:
    double currentTime = 0.0;
    double duration = 2.0;
    int created = 0;

    std::unique_ptr<playback::AudioPlayer> createPlayer(const audio::Bytes&) override {
        ++created;
        return std::make_unique<Player>(*this);
    }

private:
    class Player final : public playback::AudioPlayer {
    public:
        explicit Player(const ScriptedPlayerFactory& script) : script_(script) {}
        void setNumberOfLoops(int) override {}
        void setVolume(float) override {}
        void prepareToPlay() override {}
        void play() override {}
        void stop() override {}
        double currentTime() const override { return script_.currentTime; }
        double duration() const override { return script_.duration; }

    private:
        const ScriptedPlayerFactory& script_;
    };
};

/// One repeating timer at most is alive at a time in the model; `fire` ticks
/// whichever is.
class ManualTimerFactory final : public playback::TimerFactory {
public:
    std::unique_ptr<playback::RepeatingTimer> startRepeating(double, std::function<void()> tick) override {
        auto timer = std::make_unique<Timer>(*this);
        tick_ = std::move(tick);
        owner_ = timer.get();
        return timer;
    }
    void fire() {
        if (owner_ && tick_)
            tick_();
    }

private:
    class Timer final : public playback::RepeatingTimer {
    public:
        explicit Timer(ManualTimerFactory& factory) : factory_(factory) {}
        ~Timer() override {
            if (factory_.owner_ == this)
                factory_.owner_ = nullptr;
        }

    private:
        ManualTimerFactory& factory_;
    };
    std::function<void()> tick_;
    const Timer* owner_ = nullptr;
};

/// A temporary home with a source and an output folder, and the fakes of a
/// platform whose settings point at them. Must outlive every model made from
/// `platform()`.
class FakePlatform {
public:
    FakePlatform() {
        if (!home_.isValid())
            throw std::runtime_error("cannot create a temporary home folder");
        QDir(home_.path()).mkpath(QStringLiteral("Source"));
        QDir(home_.path()).mkpath(QStringLiteral("Output"));
        settings.values[model::AppModel::sourceDirKey] = sourceFolder();
        settings.values[model::AppModel::outputDirKey] = outputFolder();
    }

    std::string home() const { return home_.path().toStdString(); }
    std::string sourceFolder() const { return home() + "/Source"; }
    std::string outputFolder() const { return home() + "/Output"; }

    /// Copies one of the converted drum breaks into the source folder under
    /// `name`; returns its path.
    std::string addLoop(const std::string& name, const std::string& loop = "amen_s16.wav") {
        const std::string path = sourceFolder() + "/" + name;
        const QString from = QStringLiteral(MARQUETRY_TEST_LOOPS_DIR "/") + QString::fromStdString(loop);
        if (!QFile::copy(from, QString::fromStdString(path)))
            throw std::runtime_error("cannot copy test loop " + from.toStdString());
        return path;
    }

    model::Platform platform() {
        return model::Platform{
            .settings = settings,
            .folderChooser = chooser,
            .fileBrowser = browser,
            .tasks = tasks,
            .audioPlayers = players,
            .timers = timers,
            .homeFolder = home(),
            .unixSeconds = [] { return std::int64_t{1'700'000'000}; },
            .randomUuid = [this] {
                playback::Uuid id{};
                const int n = ++uuids_;
                id[15] = static_cast<std::uint8_t>(n);
                id[14] = static_cast<std::uint8_t>(n >> 8);
                return id;
            },
        };
    }

    MemorySettings settings;
    ScriptedFolderChooser chooser;
    RecordingFileBrowser browser;
    QueuedTaskRunner tasks;
    ScriptedPlayerFactory players;
    ManualTimerFactory timers;

private:
    QTemporaryDir home_;
    std::atomic<int> uuids_{0};
};

} // namespace marquetry::ui::test
