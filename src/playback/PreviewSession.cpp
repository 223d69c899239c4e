#include "playback/PreviewSession.hpp"

#include <exception>

namespace marquetry::playback {

PreviewSession::PreviewSession(AudioPlayerFactory& players, TimerFactory& timers, std::function<void(Change)> changed)
    : players_(players), timers_(timers), changed_(std::move(changed)) {}

// The timer goes first: it must not tick into a session whose player is gone.
PreviewSession::~PreviewSession() {
    playbackTimer_.reset();
    if (audioPlayer_)
        audioPlayer_->stop();
}

std::optional<std::string> PreviewSession::play(const PlaybackTarget& target, const audio::Bytes& wavImage,
                                                double volume) {
    stop();
    try {
        audioPlayer_ = players_.createPlayer(wavImage);
    } catch (const std::exception& error) {
        // Still Idle: the stream was stopped above and no player was stored.
        return std::string(error.what());
    }
    audioPlayer_->setVolume(static_cast<float>(volume));
    audioPlayer_->prepareToPlay();
    audioPlayer_->play();
    setPlayingTarget(target);
    startPlaybackMonitoring();
    return std::nullopt;
}

void PreviewSession::stop() {
    playbackTimer_.reset();
    if (audioPlayer_) {
        audioPlayer_->stop();
        audioPlayer_.reset();
    }
    setPlayingTarget(std::nullopt);
    setPlaybackProgress(std::nullopt);
}

void PreviewSession::applyVolume(double volume) {
    if (audioPlayer_)
        audioPlayer_->setVolume(static_cast<float>(volume));
}

void PreviewSession::updatePlaybackProgress() {
    if (audioPlayer_ && audioPlayer_->duration() > 0)
        setPlaybackProgress(audioPlayer_->currentTime() / audioPlayer_->duration());
    else
        setPlaybackProgress(std::nullopt);
}

void PreviewSession::startPlaybackMonitoring() {
    playbackTimer_.reset();
    // Draw the playhead before the first tick.
    updatePlaybackProgress();
    // Ticks arrive on the main thread and end when the timer is destroyed,
    // which stop() and the destructor do first, so the tick never outlives
    // the session it reads.
    playbackTimer_ = timers_.startRepeating(progressInterval, [this] { updatePlaybackProgress(); });
}

void PreviewSession::setPlayingTarget(std::optional<PlaybackTarget> target) {
    playingTarget_ = target;
    changed_(Change::playingTarget);
}

void PreviewSession::setPlaybackProgress(std::optional<double> progress) {
    playbackProgress_ = progress;
    changed_(Change::playbackProgress);
}

} // namespace marquetry::playback
