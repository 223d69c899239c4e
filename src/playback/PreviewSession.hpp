#pragma once

#include "playback/AudioOutput.hpp"
#include "playback/PlaybackTarget.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace marquetry::playback {

/// The one looping preview stream, its progress timer and master volume.
/// Either Idle (no player, timer, target or progress) or Playing a target.
/// Main thread only; never throws.
class PreviewSession {
public:
    enum class Change { playingTarget, playbackProgress };

    /// `changed` is told each time the target or the progress is written.
    PreviewSession(AudioPlayerFactory& players, TimerFactory& timers, std::function<void(Change)> changed);
    ~PreviewSession();

    PreviewSession(const PreviewSession&) = delete;
    PreviewSession& operator=(const PreviewSession&) = delete;

    /// Stops any stream, then plays `wavImage` looping at `volume` and starts
    /// the progress timer. Returns the player's description of the failure
    /// when it cannot be created, leaving the session Idle.
    std::optional<std::string> play(const PlaybackTarget& target, const audio::Bytes& wavImage, double volume);

    /// Ends any stream and clears target and progress.
    void stop();

    /// Applies a new master volume to the live stream, if any.
    void applyVolume(double volume);

    const std::optional<PlaybackTarget>& playingTarget() const { return playingTarget_; }
    /// Position as a fraction of the duration; none when idle or when the
    /// duration is not positive. Not clamped.
    const std::optional<double>& playbackProgress() const { return playbackProgress_; }

    /// Recomputes the progress from the player; the timer calls it.
    void updatePlaybackProgress();

    static constexpr double progressInterval = 0.03;

private:
    void startPlaybackMonitoring();
    void setPlayingTarget(std::optional<PlaybackTarget> target);
    void setPlaybackProgress(std::optional<double> progress);

    AudioPlayerFactory& players_;
    TimerFactory& timers_;
    std::function<void(Change)> changed_;
    std::unique_ptr<AudioPlayer> audioPlayer_;
    std::unique_ptr<RepeatingTimer> playbackTimer_;
    std::optional<PlaybackTarget> playingTarget_;
    std::optional<double> playbackProgress_;
};

} // namespace marquetry::playback
