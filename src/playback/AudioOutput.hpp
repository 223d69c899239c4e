#pragma once

#include "audio/WavData.hpp"

#include <functional>
#include <memory>

namespace marquetry::playback {

/// One stream of a WAV image held in memory, repeated without a seam until
/// stop(): previews always loop. Main thread only.
class AudioPlayer {
public:
    virtual ~AudioPlayer() = default;

    /// Takes effect at once, also while playing.
    virtual void setVolume(float gain) = 0;
    virtual void prepareToPlay() = 0;
    /// Starts from the beginning of the data.
    virtual void play() = 0;
    /// Ends output at once.
    virtual void stop() = 0;
    /// Seconds into the current pass of the loop; restarts at 0 on every pass.
    virtual double currentTime() const = 0;
    /// Seconds in one pass.
    virtual double duration() const = 0;
};

/// Makes players. Main thread only.
class AudioPlayerFactory {
public:
    virtual ~AudioPlayerFactory() = default;

    /// A player for a complete RIFF/WAVE image. Throws std::exception whose
    /// what() describes, for the user, why the image cannot be played.
    virtual std::unique_ptr<AudioPlayer> createPlayer(const audio::Bytes& wavImage) = 0;
};

/// A repeating timer on the main thread; stops when destroyed.
class RepeatingTimer {
public:
    virtual ~RepeatingTimer() = default;
};

class TimerFactory {
public:
    virtual ~TimerFactory() = default;

    /// Calls `tick` on the main thread every `intervalSeconds`, also while the
    /// user drags a control, until the returned timer is destroyed.
    virtual std::unique_ptr<RepeatingTimer> startRepeating(double intervalSeconds, std::function<void()> tick) = 0;
};

} // namespace marquetry::playback
