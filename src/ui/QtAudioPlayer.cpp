#include "ui/QtAudioPlayer.hpp"

#include "audio/WavReader.hpp"
#include "ui/QtAudioPlayerInternals.hpp"

#include <QAudioDevice>
#include <QAudioSink>
#include <QMediaDevices>
#include <QThread>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

namespace marquetry::ui {
namespace detail {
namespace {

template <typename T>
void storeNative(char* out, T value) {
    std::memcpy(out, &value, sizeof value);
}

void convertUInt8(const std::uint8_t* in, char* out) {
    storeNative(out, in[0]);
}
void convertInt16(const std::uint8_t* in, char* out) {
    storeNative(out, qFromLittleEndian<qint16>(in));
}
// The 24 bits become the top of 32, so full scale stays full scale.
void convertInt24(const std::uint8_t* in, char* out) {
    const auto bits = (std::uint32_t{in[0]} << 8) | (std::uint32_t{in[1]} << 16) | (std::uint32_t{in[2]} << 24);
    storeNative(out, static_cast<qint32>(bits));
}
void convertInt32(const std::uint8_t* in, char* out) {
    storeNative(out, qFromLittleEndian<qint32>(in));
}
void convertFloat32(const std::uint8_t* in, char* out) {
    storeNative(out, std::bit_cast<float>(qFromLittleEndian<quint32>(in)));
}
void convertFloat64(const std::uint8_t* in, char* out) {
    // Narrowing a double beyond float's range is undefined; such a sample
    // clips anyway. NaN passes through std::clamp unchanged.
    const double wide = std::clamp(std::bit_cast<double>(qFromLittleEndian<quint64>(in)), -double{FLT_MAX},
                                   double{FLT_MAX});
    storeNative(out, static_cast<float>(wide));
}

struct SampleLayout {
    int inBytes;
    int outBytes;
    QAudioFormat::SampleFormat format;
    void (*convert)(const std::uint8_t* in, char* out);
};

SampleLayout sampleLayout(const audio::WavData& wav) {
    if (wav.audioFormat == audio::formatPcm) {
        switch (wav.bitsPerSample) {
        case 8: return {1, 1, QAudioFormat::UInt8, convertUInt8};
        case 16: return {2, 2, QAudioFormat::Int16, convertInt16};
        case 24: return {3, 4, QAudioFormat::Int32, convertInt24};
        case 32: return {4, 4, QAudioFormat::Int32, convertInt32};
        default: break;
        }
    } else if (wav.audioFormat == audio::formatFloat) {
        switch (wav.bitsPerSample) {
        case 32: return {4, 4, QAudioFormat::Float, convertFloat32};
        case 64: return {8, 4, QAudioFormat::Float, convertFloat64};
        default: break;
        }
    }
    const char* kind = wav.audioFormat == audio::formatFloat ? "floating-point" : "integer";
    throw std::runtime_error(std::to_string(wav.bitsPerSample) + "-bit " + kind + " samples cannot be played.");
}

} // namespace

PlayableAudio makePlayableAudio(const audio::WavData& wav) {
    if (wav.channels == 0)
        throw std::runtime_error("The audio has no channels.");
    if (wav.sampleRate == 0)
        throw std::runtime_error("The audio has a sample rate of 0 Hz.");
    if (wav.sampleRate > INT_MAX)
        throw std::runtime_error("A sample rate of " + std::to_string(wav.sampleRate) + " Hz cannot be played.");
    const SampleLayout layout = sampleLayout(wav);
    const std::size_t samplesPerFrame = wav.channels;
    if (wav.blockAlign < samplesPerFrame * static_cast<std::size_t>(layout.inBytes))
        throw std::runtime_error("Frames of " + std::to_string(wav.blockAlign) + " bytes cannot hold "
                                 + std::to_string(wav.channels) + " channels of "
                                 + std::to_string(wav.bitsPerSample) + "-bit samples.");

    PlayableAudio playable;
    playable.format.setSampleRate(static_cast<int>(wav.sampleRate));
    playable.format.setChannelCount(wav.channels);
    playable.format.setSampleFormat(layout.format);

    const auto frames = static_cast<std::size_t>(audio::frameCount(wav.pcmData.size(), wav.blockAlign));
    const bool storedAsPlayed = layout.inBytes == layout.outBytes
                                && wav.blockAlign == samplesPerFrame * static_cast<std::size_t>(layout.inBytes)
                                && std::endian::native == std::endian::little;
    if (storedAsPlayed) {
        playable.pcm = QByteArray(reinterpret_cast<const char*>(wav.pcmData.data()),
                                  static_cast<qsizetype>(frames * wav.blockAlign));
        return playable;
    }

    playable.pcm.resize(static_cast<qsizetype>(frames * samplesPerFrame * static_cast<std::size_t>(layout.outBytes)));
    char* out = playable.pcm.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const std::uint8_t* in = wav.pcmData.data() + frame * wav.blockAlign;
        for (std::size_t channel = 0; channel < samplesPerFrame; ++channel) {
            layout.convert(in, out);
            in += layout.inBytes;
            out += layout.outBytes;
        }
    }
    return playable;
}

LoopingAudioDevice::LoopingAudioDevice(QByteArray pcm, int passes, QObject* parent)
    : QIODevice(parent), pcm_(std::move(pcm)), passes_(passes) {
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void LoopingAudioDevice::rewind(int passes) {
    passes_ = passes;
    bytesRead_.store(0, std::memory_order_release);
}

qint64 LoopingAudioDevice::bytesLeft() const {
    const qint64 read = bytesRead();
    if (pcm_.isEmpty())
        return 0;
    // Forever: what is left of this pass and the whole of the next, which
    // keeps readers that size their reads by it reading.
    if (passes_ < 0)
        return pcm_.size() - read % pcm_.size() + pcm_.size();
    return std::max<qint64>(0, qint64{passes_} * pcm_.size() - read);
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

} // namespace detail

namespace {

/// Owns the sink and its source on the audio thread. Everything but the
/// constructor and `heardBytes` runs there.
class SinkHost final : public QObject {
public:
    SinkHost(QAudioDevice device, detail::PlayableAudio audio, std::atomic<qint64>& heardBytes)
        : outputDevice_(std::move(device)), audio_(std::move(audio)), heardBytes_(heardBytes) {}

    void create() {
        passBytes_ = audio_.pcm.size();
        source_ = std::make_unique<detail::LoopingAudioDevice>(std::move(audio_.pcm), -1);
        // The default buffer size: smaller ones never start in Qt 6.4.
        sink_ = std::make_unique<QAudioSink>(outputDevice_, audio_.format);
        QObject::connect(sink_.get(), &QAudioSink::stateChanged, this, [this](QAudio::State state) {
            if (state == QAudio::StoppedState && sink_->error() != QAudio::NoError)
                qWarning("Preview playback stopped: audio error %d", static_cast<int>(sink_->error()));
        });
        positionTimer_ = std::make_unique<QTimer>();
        positionTimer_->setTimerType(Qt::PreciseTimer);
        positionTimer_->setInterval(positionInterval);
        QObject::connect(positionTimer_.get(), &QTimer::timeout, this, [this] { updatePosition(); });
    }

    void start(int passes, float volume) {
        if (!sink_)
            return;
        sink_->stop();
        source_->rewind(passes);
        passes_ = passes;
        heardBytes_.store(0, std::memory_order_release);
        sink_->setVolume(volume);
        sink_->start(source_.get());
        positionTimer_->start();
    }

    void stop() {
        if (!sink_)
            return;
        positionTimer_->stop();
        sink_->stop();
    }

    void setVolume(float volume) {
        if (sink_)
            sink_->setVolume(volume);
    }

    /// Leaves an empty object that the main thread may delete once this
    /// thread has ended.
    void shutdown() {
        stop();
        // Destroying a Qt 6.4 PulseAudio sink runs the event loop; whatever
        // it delivers must find the sink already gone, not half destroyed.
        if (sink_)
            sink_->disconnect(this);
        std::unique_ptr<QAudioSink> sink = std::move(sink_);
        sink.reset();
        positionTimer_.reset();
        source_.reset();
    }

private:
    static constexpr int positionInterval = 5;

    // What has been read, less what still waits in the sink's buffer, is
    // what has been heard.
    void updatePosition() {
        if (sink_->state() == QAudio::StoppedState)
            return;
        const qint64 queued = std::max<qint64>(0, sink_->bufferSize() - sink_->bytesFree());
        const qint64 heard = std::max<qint64>(0, source_->bytesRead() - queued);
        heardBytes_.store(heard, std::memory_order_release);
        if (passes_ >= 0 && heard >= qint64{passes_} * passBytes_)
            stop();
    }

    QAudioDevice outputDevice_;
    detail::PlayableAudio audio_;
    std::atomic<qint64>& heardBytes_;
    int passes_ = -1;
    qint64 passBytes_ = 0;
    // The sink reads from the source, so it goes first.
    std::unique_ptr<detail::LoopingAudioDevice> source_;
    std::unique_ptr<QAudioSink> sink_;
    std::unique_ptr<QTimer> positionTimer_;
};

/// The main thread's handle. Each call is handed to the audio thread in
/// order, so the main thread never waits on the audio server while playing.
class QtAudioPlayer final : public playback::AudioPlayer {
public:
    QtAudioPlayer(const QAudioDevice& device, detail::PlayableAudio audio)
        : pcmBytes_(audio.pcm.size()),
          bytesPerSecond_(qint64{audio.format.bytesPerFrame()} * audio.format.sampleRate()),
          frames_(audio.pcm.size() / audio.format.bytesPerFrame()),
          sampleRate_(audio.format.sampleRate()),
          host_(std::make_unique<SinkHost>(device, std::move(audio), heardBytes_)) {
        // A sink pulls its data on its own thread, so a busy main thread
        // cannot starve it.
        thread_.setObjectName(QStringLiteral("Marquetry preview"));
        host_->moveToThread(&thread_);
        thread_.start();
        QMetaObject::invokeMethod(host_.get(), [host = host_.get()] { host->create(); },
                                  Qt::BlockingQueuedConnection);
    }

    ~QtAudioPlayer() override {
        QMetaObject::invokeMethod(host_.get(), [host = host_.get()] { host->shutdown(); },
                                  Qt::BlockingQueuedConnection);
        thread_.quit();
        thread_.wait();
    }

    QtAudioPlayer(const QtAudioPlayer&) = delete;
    QtAudioPlayer& operator=(const QtAudioPlayer&) = delete;

    void setNumberOfLoops(int loops) override { passes_ = loops < 0 ? -1 : loops + 1; }

    void setVolume(float gain) override {
        // NaN and out-of-range gains reach the sink as silence or unity.
        volume_ = gain > 0.0f ? std::min(gain, 1.0f) : 0.0f;
        post([volume = volume_](SinkHost& host) { host.setVolume(volume); });
    }

    void prepareToPlay() override {}

    void play() override {
        heardBytes_.store(0, std::memory_order_release);
        post([passes = passes_, volume = volume_](SinkHost& host) { host.start(passes, volume); });
    }

    void stop() override {
        post([](SinkHost& host) { host.stop(); });
    }

    double currentTime() const override {
        if (pcmBytes_ == 0 || bytesPerSecond_ == 0)
            return 0.0;
        const qint64 heard = heardBytes_.load(std::memory_order_acquire);
        if (passes_ >= 0 && heard >= qint64{passes_} * pcmBytes_)
            return 0.0;
        return static_cast<double>(heard % pcmBytes_) / static_cast<double>(bytesPerSecond_);
    }

    double duration() const override { return static_cast<double>(frames_) / sampleRate_; }

private:
    template <typename Call>
    void post(Call call) {
        QMetaObject::invokeMethod(host_.get(), [host = host_.get(), call = std::move(call)] { call(*host); },
                                  Qt::QueuedConnection);
    }

    const qint64 pcmBytes_;
    const qint64 bytesPerSecond_;
    const qint64 frames_;
    const int sampleRate_;
    int passes_ = 1;
    float volume_ = 1.0f;
    std::atomic<qint64> heardBytes_{0};
    QThread thread_;
    // Declared after the thread: deleted once the thread has ended.
    std::unique_ptr<SinkHost> host_;
};

} // namespace

std::unique_ptr<playback::AudioPlayer> QtAudioPlayerFactory::createPlayer(const audio::Bytes& wavImage) {
    const audio::WavData wav = audio::parseWav(wavImage);
    detail::PlayableAudio audio = detail::makePlayableAudio(wav);

    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull())
        throw std::runtime_error("No audio output device is available.");
    if (!device.isFormatSupported(audio.format))
        throw std::runtime_error("The audio output cannot play " + std::to_string(wav.channels)
                                 + (wav.channels == 1 ? " channel" : " channels") + " at "
                                 + std::to_string(wav.sampleRate) + " Hz.");
    return std::make_unique<QtAudioPlayer>(device, std::move(audio));
}

} // namespace marquetry::ui
