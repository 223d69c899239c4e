// The preview as a listener hears it: the application model over the Qt
// platform plays a real drum loop into a PulseAudio null sink, and the test
// records the sink's monitor and compares what arrived with the loop.
// Run through scripts/with-null-sink, which provides the private server.

#include "../model/PlatformFakes.hpp"
#include "audio/WavReader.hpp"
#include "model/AppModel.hpp"
#include "model/SystemServices.hpp"
#include "ui/QtAudioPlayer.hpp"
#include "ui/QtPlatform.hpp"

#include <QAudioDevice>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <cmath>
#include <filesystem>
#include <map>
#include <vector>

using namespace marquetry;

namespace {

constexpr int captureRate = 44100;
constexpr const char* loopName = "amen_s16.wav";

/// Interleaved stereo frames.
struct Stereo {
    std::vector<float> samples;
    qint64 frames() const { return static_cast<qint64>(samples.size() / 2); }
    float left(qint64 frame) const { return samples[static_cast<std::size_t>(2 * frame)]; }
    float right(qint64 frame) const { return samples[static_cast<std::size_t>(2 * frame + 1)]; }
};

Stereo fromS16(const audio::WavData& wav) {
    Stereo out;
    for (std::size_t i = 0; i + 1 < wav.pcmData.size(); i += 2) {
        const auto value = static_cast<std::int16_t>(wav.pcmData[i] | (wav.pcmData[i + 1] << 8));
        out.samples.push_back(static_cast<float>(value) / 32768.0f);
    }
    return out;
}

Stereo fromFloat32(const QByteArray& raw) {
    Stereo out;
    out.samples.resize(static_cast<std::size_t>(raw.size()) / sizeof(float) / 2 * 2);
    std::memcpy(out.samples.data(), raw.constData(), out.samples.size() * sizeof(float));
    return out;
}

qint64 firstFrameAbove(const Stereo& signal, float threshold) {
    for (qint64 frame = 0; frame < signal.frames(); ++frame)
        if (std::abs(signal.left(frame)) + std::abs(signal.right(frame)) > threshold)
            return frame;
    return -1;
}

/// The recording against the loop repeated for ever, with loop frame 0 at
/// recording frame `lag`; windows are in seconds of playback.
struct Alignment {
    const Stereo& recorded;
    const Stereo& loop;
    qint64 lag;

    qint64 frameAt(double seconds) const { return lag + std::llround(seconds * captureRate); }

    struct Sums {
        double recordedEnergy = 0, loopEnergy = 0, product = 0;
        bool complete = true;
    };
    Sums sums(double fromSeconds, double toSeconds) const {
        Sums s;
        const qint64 from = frameAt(fromSeconds), to = frameAt(toSeconds);
        s.complete = from >= 0 && to <= recorded.frames() && from < to;
        for (qint64 frame = std::max<qint64>(from, 0); frame < std::min(to, recorded.frames()); ++frame) {
            const qint64 at = (frame - lag) % loop.frames();
            for (const auto& [r, l] : {std::pair{recorded.left(frame), loop.left(at)},
                                       std::pair{recorded.right(frame), loop.right(at)}}) {
                s.recordedEnergy += double{r} * r;
                s.loopEnergy += double{l} * l;
                s.product += double{r} * l;
            }
        }
        return s;
    }
    /// Normalised cross-correlation: 1 for a scaled copy.
    double correlation(double fromSeconds, double toSeconds) const {
        const Sums s = sums(fromSeconds, toSeconds);
        return s.complete ? s.product / std::sqrt(s.recordedEnergy * s.loopEnergy) : 0.0;
    }
    /// Loudness of the recording over that of the loop at the same places.
    double gain(double fromSeconds, double toSeconds) const {
        const Sums s = sums(fromSeconds, toSeconds);
        return s.complete ? std::sqrt(s.recordedEnergy / s.loopEnergy) : 0.0;
    }
};

/// The lag within `radius` frames of `guess`, tried every `step` frames, at
/// which the window sounds most like the loop.
qint64 bestLag(const Stereo& recorded, const Stereo& loop, qint64 guess, qint64 radius, qint64 step,
               double fromSeconds, double toSeconds) {
    qint64 best = guess;
    double bestCorrelation = -2.0;
    for (qint64 lag = guess - radius; lag <= guess + radius; lag += step) {
        const double c = Alignment{recorded, loop, lag}.correlation(fromSeconds, toSeconds);
        if (c > bestCorrelation) {
            bestCorrelation = c;
            best = lag;
        }
    }
    return best;
}

double rmsFrom(const Stereo& signal, qint64 fromFrame) {
    const auto first = std::min(signal.samples.size(), static_cast<std::size_t>(2 * std::max<qint64>(fromFrame, 0)));
    double energy = 0;
    for (std::size_t i = first; i < signal.samples.size(); ++i)
        energy += double{signal.samples[i]} * signal.samples[i];
    return std::sqrt(energy / static_cast<double>(std::max<std::size_t>(1, signal.samples.size() - first)));
}

void waitUntil(const QElapsedTimer& clock, double seconds) {
    const auto remaining = static_cast<int>(std::lround(seconds * 1000.0)) - static_cast<int>(clock.elapsed());
    if (remaining > 0)
        QTest::qWait(remaining);
}

} // namespace

class RealAudioTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void previewLoopsFollowsTheVolumeAndStops();
};

void RealAudioTest::initTestCase() {
    if (qEnvironmentVariableIsSet("MARQUETRY_NO_AUDIO_SERVER"))
        QSKIP(qPrintable("No audio server to play into: " + qEnvironmentVariable("MARQUETRY_NO_AUDIO_SERVER")));
    if (!qEnvironmentVariableIsSet("PULSE_SERVER"))
        QSKIP("PULSE_SERVER is not set: run this test through scripts/with-null-sink.");
    QVERIFY2(!QMediaDevices::defaultAudioOutput().isNull(), "The audio server runs, but Qt sees no output device.");
}

void RealAudioTest::previewLoopsFollowsTheVolumeAndStops() {
    QTemporaryDir home;
    const std::filesystem::path source = home.filePath("source").toStdString();
    std::filesystem::create_directories(source);
    std::filesystem::copy_file(std::filesystem::path(MARQUETRY_TEST_LOOPS_DIR) / loopName, source / loopName);
    const audio::WavData wav = audio::loadWav((source / loopName).string());
    // Compared frame for frame with the recording, so at its rate and layout.
    QVERIFY(wav.sampleRate == captureRate && wav.channels == 2 && wav.bitsPerSample == 16);
    const Stereo loop = fromS16(wav);
    const double loopSeconds = static_cast<double>(loop.frames()) / captureRate;

    model::test::FakeSettings settings;
    settings.values[model::AppModel::sourceDirKey] = source.string();
    settings.values[model::AppModel::outputDirKey] = home.filePath("output").toStdString();
    model::test::FakeFolderChooser folders;
    ui::QtFileBrowser browser;
    ui::QtTaskRunner tasks;
    ui::QtAudioPlayerFactory players;
    ui::QtTimerFactory timers;
    model::AppModel model({settings, folders, browser, tasks, players, timers, home.path().toStdString(),
                           model::systemUnixSeconds, model::osRandomUuid});
    QVERIFY2(model.sourceWavData().has_value(), model.status().c_str());

    QElapsedTimer clock;
    std::vector<std::pair<double, double>> progress;
    model.subscribe([&](model::AppModel::Field field) {
        if (field == model::AppModel::Field::playbackProgress && model.playbackProgress())
            progress.emplace_back(static_cast<double>(clock.nsecsElapsed()) / 1e9, *model.playbackProgress());
    });

    QProcess recorder;
    QByteArray raw;
    connect(&recorder, &QProcess::readyReadStandardOutput, this, [&] { raw += recorder.readAllStandardOutput(); });
    recorder.start("parec", {"-d", "nullsink.monitor", "--format=float32le", "--rate=44100", "--channels=2", "--raw",
                             "--latency-msec=20"});
    QVERIFY2(recorder.waitForStarted(), "parec (pulseaudio-utils) did not start");
    QTRY_VERIFY2(!raw.isEmpty(), "parec records nothing");

    // Timeline in seconds since the first click: a stall of the main thread
    // in the first pass, the volume change early in the second, the stop
    // well before the second pass ends.
    const double stallAt = 0.8, stallSeconds = 0.3;
    const double volumeAt = loopSeconds + 0.55;
    const double stopAt = volumeAt + 0.8;

    clock.start();
    model.toggleSourcePlayback();
    QCOMPARE(model.status(), std::string("Playing source loop (looping). Click again to stop."));
    waitUntil(clock, stallAt);
    QThread::msleep(static_cast<unsigned long>(stallSeconds * 1000));
    waitUntil(clock, volumeAt);
    model.setMasterVolume(0.25);
    const double volumeChangedAt = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    waitUntil(clock, stopAt);
    model.toggleSourcePlayback();
    const double stoppedAt = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    QCOMPARE(model.status(), std::string("Stopped source preview."));
    QVERIFY(!model.playingTarget().has_value());
    QVERIFY(!model.playbackProgress().has_value());
    waitUntil(clock, stoppedAt + 0.5);
    recorder.terminate();
    QVERIFY(recorder.waitForFinished());
    raw += recorder.readAllStandardOutput();

    const Stereo recorded = fromFloat32(raw);
    const qint64 onset = firstFrameAbove(recorded, 0.01f);
    QVERIFY2(onset >= 0, "nothing reached the sink");
    // The first loud frame only hints at the lag: the resamplers smear it.
    const qint64 guess = onset - firstFrameAbove(loop, 0.01f / 0.85f);
    const qint64 coarseLag = bestLag(recorded, loop, guess, 2000, 3, 0.05, 0.3);
    const qint64 lag = bestLag(recorded, loop, coarseLag, 3, 1, 0.05, 0.4);
    const Alignment aligned{recorded, loop, lag};

    // The whole first pass, through the stall; across the seam; and the
    // second pass on its own, which must sit exactly one loop later.
    const double firstPass = aligned.correlation(0.05, loopSeconds - 0.02);
    const double acrossSeam = aligned.correlation(loopSeconds - 0.4, volumeChangedAt + 0.05);
    const qint64 secondPassLag = bestLag(recorded, loop, lag, 100, 1, loopSeconds + 0.02, volumeChangedAt + 0.05);
    const double before = aligned.gain(0.05, loopSeconds - 0.02);
    const double after = aligned.gain(volumeChangedAt + 0.35, stoppedAt - 0.05);
    const qint64 silentFrom = aligned.frameAt(stoppedAt + 0.2);
    const double tailRms = rmsFrom(recorded, silentFrom);
    qint64 lastSound = recorded.frames() - 1;
    while (lastSound > 0 && std::abs(recorded.left(lastSound)) + std::abs(recorded.right(lastSound)) < 1e-4f)
        --lastSound;
    qInfo("first pass %.4f, across the seam %.4f, second-pass lag %+lld frames, gain %.3f -> %.3f (ratio %.3f), "
          "sound ends %.0f ms after the stop, rms from 200 ms after it %.2e",
          firstPass, acrossSeam, static_cast<long long>(secondPassLag - lag), before, after, after / before,
          (static_cast<double>(lastSound - lag) / captureRate - stoppedAt) * 1000.0, tailRms);

    QVERIFY2(firstPass > 0.9, "the first pass does not sound like the loop");
    QVERIFY2(acrossSeam > 0.9, "the loop does not carry on past its end");
    QVERIFY2(std::abs(secondPassLag - lag) <= 2, "a gap or an overlap at the loop point");
    QVERIFY2(std::abs(before - 0.85) < 0.05, "the starting volume is not the master volume");
    QVERIFY2(std::abs(after / before - 0.25 / 0.85) < 0.03, "the volume change was not followed");
    QVERIFY2(recorded.frames() - silentFrom > captureRate / 5, "the recording ends too soon after the stop");
    QVERIFY2(tailRms < 1e-4, "sound continues after the stop");

    // The playhead restarts once, when the seam is heard: never before it
    // (the sink's buffer is not yet heard), at most a few ticks after it.
    QVERIFY(!progress.empty());
    int wraps = 0;
    double wrappedAt = 0;
    for (std::size_t i = 0; i < progress.size(); ++i) {
        QVERIFY(progress[i].second >= 0.0 && progress[i].second < 1.0);
        if (i > 0 && progress[i].second < progress[i - 1].second - 0.5) {
            ++wraps;
            wrappedAt = progress[i].first;
        }
    }
    QCOMPARE(wraps, 1);
    QVERIFY2(wrappedAt > loopSeconds - 0.03 && wrappedAt < loopSeconds + 0.25,
             qPrintable(QString("restarted %1 s after the start of a %2 s loop").arg(wrappedAt).arg(loopSeconds)));
}

QTEST_MAIN(RealAudioTest)
#include "RealAudioTest.moc"
