#include "ui/LoopingDevice.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace marquetry::ui {

LoopingAudioDevice::LoopingAudioDevice(QByteArray pcm, QObject* parent) : QIODevice(parent), pcm_(std::move(pcm)) {
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void LoopingAudioDevice::rewind() {
    bytesRead_.store(0, std::memory_order_release);
}

qint64 LoopingAudioDevice::bytesLeft() const {
    if (pcm_.isEmpty())
        return 0;
    return pcm_.size() - bytesRead() % pcm_.size() + pcm_.size();
}

qint64 LoopingAudioDevice::bytesAvailable() const {
    return bytesLeft() + QIODevice::bytesAvailable();
}

qint64 LoopingAudioDevice::readData(char* data, qint64 maxSize) {
    const qint64 wanted = std::min(maxSize, bytesLeft());
    qint64 read = bytesRead();
    qint64 done = 0;
    while (done < wanted) {
        const qint64 at = read % pcm_.size();
        const qint64 chunk = std::min(wanted - done, pcm_.size() - at);
        std::memcpy(data + done, pcm_.constData() + at, static_cast<std::size_t>(chunk));
        done += chunk;
        read += chunk;
    }
    bytesRead_.store(read, std::memory_order_release);
    return done;
}

qint64 LoopingAudioDevice::writeData(const char*, qint64) {
    return -1;
}

} // namespace marquetry::ui
