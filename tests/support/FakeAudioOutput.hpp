#pragma once

// Players and timers that only record what was asked of them. The records
// live in the factories, so a test can read them after the owner dropped the
// player or timer.

#include "playback/AudioOutput.hpp"

#include <algorithm>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace marquetry::playback::test {

template <class Records>
long countAlive(const Records& records) {
    return std::count_if(records.begin(), records.end(), [](const auto& r) { return r.alive; });
}

struct PlayerRecord {
    audio::Bytes image;
    std::vector<float> volumes;
    std::vector<std::string> calls; ///< "prepare", "play", "stop", in order
    bool alive = true;
};

class FakeAudioPlayerFactory : public AudioPlayerFactory {
public:
    std::deque<PlayerRecord> players; ///< every player made, oldest first
    std::optional<std::string> failWith;
    double currentTime = 0.5, duration = 2.0;

    std::unique_ptr<AudioPlayer> createPlayer(const audio::Bytes& wavImage) override {
        if (failWith)
            throw std::runtime_error(*failWith);
        players.emplace_back().image = wavImage;
        return std::make_unique<Player>(players.back(), *this);
    }
    long live() const { return countAlive(players); }

private:
    struct Player : AudioPlayer {
        Player(PlayerRecord& r, const FakeAudioPlayerFactory& f) : record(r), factory(f) {}
        ~Player() override { record.alive = false; }
        void setVolume(float gain) override { record.volumes.push_back(gain); }
        void prepareToPlay() override { record.calls.push_back("prepare"); }
        void play() override { record.calls.push_back("play"); }
        void stop() override { record.calls.push_back("stop"); }
        double currentTime() const override { return factory.currentTime; }
        double duration() const override { return factory.duration; }
        PlayerRecord& record;
        const FakeAudioPlayerFactory& factory;
    };
};

class FakeTimerFactory : public TimerFactory {
public:
    struct Record {
        double interval = 0;
        std::function<void()> tick;
        bool alive = true;
    };
    std::deque<Record> timers;

    std::unique_ptr<RepeatingTimer> startRepeating(double intervalSeconds, std::function<void()> tick) override {
        timers.push_back({intervalSeconds, std::move(tick)});
        return std::make_unique<Timer>(timers.back());
    }
    /// One tick of every timer still running.
    void fire() {
        for (Record& timer : timers)
            if (timer.alive)
                timer.tick();
    }
    long live() const { return countAlive(timers); }

private:
    struct Timer : RepeatingTimer {
        explicit Timer(Record& r) : record(r) {}
        ~Timer() override { record.alive = false; }
        Record& record;
    };
};

} // namespace marquetry::playback::test
