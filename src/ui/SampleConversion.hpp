#pragma once

#include "audio/WavData.hpp"

#include <QAudioFormat>
#include <QByteArray>

namespace marquetry::ui {

/// Samples in a layout QAudioSink takes, and that layout.
struct PlayableAudio {
    QAudioFormat format;
    QByteArray pcm;
};

/// Re-lays a decoded WAV record for QAudioSink: 8-bit unsigned, 16- and
/// 32-bit integer and 32-bit float keep their values; 24-bit integer widens
/// to 32-bit, 64-bit float narrows to 32-bit; padding inside frames is
/// dropped. Throws std::runtime_error describing, for the user, a record with
/// no channels, a sample rate of 0, a sample width it cannot play, or frames
/// too small for their channels. Pure; safe on any thread.
PlayableAudio makePlayableAudio(const audio::WavData& wav);

} // namespace marquetry::ui
