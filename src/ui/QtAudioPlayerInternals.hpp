#pragma once

// The pieces of QtAudioPlayer.cpp that need no audio server, declared here
// so that tests can reach them.

#include "audio/WavData.hpp"

#include <QAudioFormat>
#include <QByteArray>
#include <QIODevice>

#include <atomic>

namespace marquetry::ui::detail {

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

/// Hands out the same bytes pass after pass, wrapping in the middle of a read
/// when it must, so the listener hears no seam. Opened read-only and
/// unbuffered, so every byte read is a byte handed to the sink.
///
/// Lives on the audio thread: all but bytesRead() belong to it.
class LoopingAudioDevice final : public QIODevice {
public:
    /// `passes` < 0 repeats until the reader stops reading.
    LoopingAudioDevice(QByteArray pcm, int passes, QObject* parent = nullptr);

    /// Starts again at the first byte, with `passes` passes to go.
    void rewind(int passes);

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;

    /// Bytes handed out since the last rewind. Thread safe.
    qint64 bytesRead() const { return bytesRead_.load(std::memory_order_acquire); }

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    qint64 bytesLeft() const;

    QByteArray pcm_;
    int passes_;
    std::atomic<qint64> bytesRead_{0};
};

} // namespace marquetry::ui::detail
