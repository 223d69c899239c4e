#pragma once

#include "playback/AudioOutput.hpp"

namespace marquetry::ui {

/// Players on Qt Multimedia's QAudioSink. Creating one parses the WAV image
/// with the project's own reader and fails with a clear description for what
/// the device cannot play (no channels, a sample rate of 0, no audio device).
class QtAudioPlayerFactory final : public playback::AudioPlayerFactory {
public:
    std::unique_ptr<playback::AudioPlayer> createPlayer(const audio::Bytes& wavImage) override;
};

} // namespace marquetry::ui
