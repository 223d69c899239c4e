#include "cli/HeadlessPlatform.hpp"

#include <stdexcept>
#include <utility>

namespace marquetry::cli {
namespace {

class IdleTimer final : public playback::RepeatingTimer {};

} // namespace

MemorySettings::MemorySettings(std::map<std::string, std::string> values) : values_(std::move(values)) {}

std::optional<std::string> MemorySettings::string(const std::string& key) const {
    const auto found = values_.find(key);
    if (found == values_.end())
        return std::nullopt;
    return found->second;
}

void MemorySettings::setString(const std::string& key, const std::string& value) {
    values_[key] = value;
}

std::optional<std::string> CancellingFolderChooser::chooseFolder(const Options&) {
    return std::nullopt;
}

bool AbsentFileBrowser::openFolder(const std::string&) {
    return false;
}

std::unique_ptr<playback::AudioPlayer> SilentAudioPlayers::createPlayer(const audio::Bytes&) {
    throw std::runtime_error("The command line does not play audio.");
}

std::unique_ptr<playback::RepeatingTimer> IdleTimers::startRepeating(double, std::function<void()>) {
    return std::make_unique<IdleTimer>();
}

MainLoop::~MainLoop() {
    joinBackgroundThreads();
}

void MainLoop::runInBackground(std::function<void()> work) {
    std::lock_guard lock(mutex_);
    threads_.emplace_back(std::move(work));
}

void MainLoop::runOnMain(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        mainQueue_.push_back(std::move(work));
    }
    queued_.notify_one();
}

void MainLoop::runUntil(const std::function<bool()>& finished) {
    while (!finished()) {
        std::function<void()> work;
        {
            std::unique_lock lock(mutex_);
            queued_.wait(lock, [this] { return !mainQueue_.empty(); });
            work = std::move(mainQueue_.front());
            mainQueue_.pop_front();
        }
        // Outside the lock: the work may queue more, from this thread too.
        work();
    }
}

void MainLoop::joinBackgroundThreads() {
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(mutex_);
        threads.swap(threads_);
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace marquetry::cli
