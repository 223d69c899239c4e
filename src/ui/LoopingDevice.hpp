#pragma once

#include <QByteArray>
#include <QIODevice>

#include <atomic>

namespace marquetry::ui {

/// Hands out the same bytes pass after pass, for ever, wrapping in the middle
/// of a read when it must, so the listener hears no seam. Opened read-only and
/// unbuffered, so every byte read is a byte handed to the sink.
///
/// Lives on the audio thread: all but bytesRead() belong to it.
class LoopingAudioDevice final : public QIODevice {
public:
    explicit LoopingAudioDevice(QByteArray pcm, QObject* parent = nullptr);

    /// Starts again at the first byte.
    void rewind();

    /// Always true: the bytes are a stream without positions.
    bool isSequential() const override { return true; }
    /// The rest of this pass and one whole pass more, so readers that size
    /// their reads by it keep reading. 0 when there is nothing to repeat.
    qint64 bytesAvailable() const override;

    /// Bytes handed out since the last rewind. Thread safe.
    qint64 bytesRead() const { return bytesRead_.load(std::memory_order_acquire); }

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    qint64 bytesLeft() const;

    QByteArray pcm_;
    std::atomic<qint64> bytesRead_{0};
};

} // namespace marquetry::ui
