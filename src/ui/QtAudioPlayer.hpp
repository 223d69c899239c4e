#pragma once

#include "playback/AudioOutput.hpp"

namespace marquetry::ui {

/// Players on Qt Multimedia's QAudioSink, each pulling its samples on a
/// thread of its own, so a busy window never starves it. Creating one parses
/// the WAV image with the project's own reader and plays every layout that
/// reader accepts. It throws std::runtime_error with a description for the
/// user when the image is invalid, has no channels or a sample rate of 0,
/// holds samples of a width that cannot be played, or when there is no audio
/// device or the device refuses the format. Main thread only, under a
/// QCoreApplication.
class QtAudioPlayerFactory final : public playback::AudioPlayerFactory {
public:
    std::unique_ptr<playback::AudioPlayer> createPlayer(const audio::Bytes& wavImage) override;
};

} // namespace marquetry::ui
