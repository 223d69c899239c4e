#include "ui/QtAudioPlayer.hpp"

#include "audio/WavReader.hpp"
#include "ui/LoopingDevice.hpp"
#include "ui/SampleConversion.hpp"

#include <QAudioDevice>
#include <QAudioSink>
#include <QMediaDevices>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

namespace marquetry::ui {
namespace {

/// Owns the sink and its source on the audio thread. Everything but the
/// constructor and `heardBytes` runs there.
class SinkHost final : public QObject {
public:
    SinkHost(QAudioDevice device, PlayableAudio audio, std::atomic<qint64>& heardBytes)
        : outputDevice_(std::move(device)), audio_(std::move(audio)), heardBytes_(heardBytes) {}

    void create() {
        source_ = std::make_unique<LoopingAudioDevice>(std::move(audio_.pcm));
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

    void start(float volume) {
        if (!sink_)
            return;
        sink_->stop();
        source_->rewind();
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
    }

    QAudioDevice outputDevice_;
    PlayableAudio audio_;
    std::atomic<qint64>& heardBytes_;
    // The sink reads from the source, so it goes first.
    std::unique_ptr<LoopingAudioDevice> source_;
    std::unique_ptr<QAudioSink> sink_;
    std::unique_ptr<QTimer> positionTimer_;
};

/// The main thread's handle. Each call is handed to the audio thread in
/// order, so the main thread never waits on the audio server while playing.
class QtAudioPlayer final : public playback::AudioPlayer {
public:
    QtAudioPlayer(const QAudioDevice& device, PlayableAudio audio)
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

    void setVolume(float gain) override {
        // NaN and out-of-range gains reach the sink as silence or unity.
        volume_ = gain > 0.0f ? std::min(gain, 1.0f) : 0.0f;
        post([volume = volume_](SinkHost& host) { host.setVolume(volume); });
    }

    void prepareToPlay() override {}

    void play() override {
        heardBytes_.store(0, std::memory_order_release);
        post([volume = volume_](SinkHost& host) { host.start(volume); });
    }

    void stop() override {
        post([](SinkHost& host) { host.stop(); });
    }

    double currentTime() const override {
        if (pcmBytes_ == 0 || bytesPerSecond_ == 0)
            return 0.0;
        const qint64 heard = heardBytes_.load(std::memory_order_acquire);
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
    float volume_ = 1.0f;
    std::atomic<qint64> heardBytes_{0};
    QThread thread_;
    // Declared after the thread: deleted once the thread has ended.
    std::unique_ptr<SinkHost> host_;
};

} // namespace

std::unique_ptr<playback::AudioPlayer> QtAudioPlayerFactory::createPlayer(const audio::Bytes& wavImage) {
    const audio::WavData wav = audio::parseWav(wavImage);
    PlayableAudio audio = makePlayableAudio(wav);

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
