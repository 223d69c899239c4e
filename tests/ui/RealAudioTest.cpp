// The preview as a listener hears it: the application model over the Qt
// platform plays a real drum loop into a PulseAudio null sink, and the test
// records the sink's monitor and compares what arrived with the loop.
// Run through scripts/with-null-sink, which provides the private server.

#include "UiFakes.hpp"

#include "audio/WavReader.hpp"
#include "model/SystemServices.hpp"
#include "ui/QtAudioPlayer.hpp"
#include "ui/QtPlatform.hpp"

#include <QAudioDevice>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QProcess>
#include <QThread>
#include <QtTest>

#include <cmath>
#include <cstring>
#include <vector>

using namespace marquetry;

namespace {

constexpr int captureRate = 44100;

/// Interleaved stereo samples.
using Stereo = std::vector<float>;

qint64 firstFrameAbove(const Stereo& signal, float threshold) {
    for (std::size_t i = 0; i + 1 < signal.size(); i += 2)
        if (std::abs(signal[i]) + std::abs(signal[i + 1]) > threshold)
            return static_cast<qint64>(i / 2);
    return -1;
}

/// The recording against the loop repeated for ever, loop frame 0 at
/// recording frame `lag`, over a window in seconds of playback: their
/// normalised cross-correlation (1 for a scaled copy) and the recording's
/// loudness over the loop's. NaN, failing every check, for a window the
/// recording does not cover.
struct Match {
    double correlation, gain;
};
Match match(const Stereo& recorded, const Stereo& loop, qint64 lag, double fromSeconds, double toSeconds) {
    const qint64 from = lag + std::llround(fromSeconds * captureRate), to = lag + std::llround(toSeconds * captureRate);
    if (from < 0 || 2 * to > std::ssize(recorded) || from >= to)
        return {std::nan(""), std::nan("")};
    double recordedEnergy = 0, loopEnergy = 0, product = 0;
    for (qint64 i = 2 * from; i < 2 * to; ++i) {
        const double r = recorded[static_cast<std::size_t>(i)];
        const double l = loop[static_cast<std::size_t>((i - 2 * lag) % std::ssize(loop))];
        recordedEnergy += r * r;
        loopEnergy += l * l;
        product += r * l;
    }
    return {product / std::sqrt(recordedEnergy * loopEnergy), std::sqrt(recordedEnergy / loopEnergy)};
}

/// The lag within `radius` frames of `guess`, tried every `step` frames, at
/// which the window sounds most like the loop.
qint64 bestLag(const Stereo& recorded, const Stereo& loop, qint64 guess, qint64 radius, qint64 step,
               double fromSeconds, double toSeconds) {
    qint64 best = guess;
    double bestCorrelation = -2.0;
    for (qint64 lag = guess - radius; lag <= guess + radius; lag += step)
        if (const double c = match(recorded, loop, lag, fromSeconds, toSeconds).correlation; c > bestCorrelation) {
            bestCorrelation = c;
            best = lag;
        }
    return best;
}

} // namespace

class RealAudioTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsSet("MARQUETRY_NO_AUDIO_SERVER"))
            QSKIP(qPrintable("No audio server to play into: " + qEnvironmentVariable("MARQUETRY_NO_AUDIO_SERVER")));
        if (!qEnvironmentVariableIsSet("PULSE_SERVER"))
            QSKIP("PULSE_SERVER is not set: run this test through scripts/with-null-sink.");
        QVERIFY2(!QMediaDevices::defaultAudioOutput().isNull(), "The audio server runs, but Qt sees no output device.");
    }

    void previewLoopsFollowsTheVolumeAndStops() {
        const audio::WavData wav = audio::loadWav(MARQUETRY_TEST_LOOPS_DIR "/amen_s16.wav");
        // Compared frame for frame with the recording, so at its rate and layout.
        QVERIFY(wav.sampleRate == captureRate && wav.channels == 2 && wav.bitsPerSample == 16);
        Stereo loop;
        for (std::size_t i = 0; i + 1 < wav.pcmData.size(); i += 2)
            loop.push_back(static_cast<std::int16_t>(wav.pcmData[i] | (wav.pcmData[i + 1] << 8)) / 32768.0f);
        const double loopSeconds = static_cast<double>(loop.size() / 2) / captureRate;

        // The real player, timer and task runner; only the files are the fakes'.
        ui::test::FakePlatform fakes;
        fakes.addLoop("loop.wav");
        ui::QtTaskRunner tasks;
        ui::QtAudioPlayerFactory players;
        ui::QtTimerFactory timers;
        model::AppModel model({fakes.settings, fakes.chooser, fakes.browser, tasks, players, timers, fakes.home(),
                               model::systemUnixSeconds, model::osRandomUuid});
        QVERIFY2(model.sourceWavData().has_value(), model.status().c_str());

        QElapsedTimer clock;
        const auto now = [&clock] { return static_cast<double>(clock.nsecsElapsed()) / 1e9; };
        const auto waitUntil = [&clock](double seconds) {
            QTest::qWait(std::max(0, static_cast<int>(std::llround(seconds * 1000.0) - clock.elapsed())));
        };
        std::vector<std::pair<double, double>> progress;
        model.subscribe([&](const model::AppModel::Change& change) {
            if (change.field == model::AppModel::Field::playbackProgress && model.playbackProgress())
                progress.emplace_back(now(), *model.playbackProgress());
        });

        QProcess recorder;
        QByteArray raw;
        connect(&recorder, &QProcess::readyReadStandardOutput, this, [&] { raw += recorder.readAllStandardOutput(); });
        recorder.start("parec", {"-d", "nullsink.monitor", "--format=float32le", "--rate=44100", "--channels=2",
                                 "--raw", "--latency-msec=20"});
        QVERIFY2(recorder.waitForStarted(), "parec (pulseaudio-utils) did not start");
        QTRY_VERIFY2(!raw.isEmpty(), "parec records nothing");

        // Seconds since the first click: a stall of the main thread in the first
        // pass, the volume change early in the second, the stop before it ends.
        const double volumeAt = loopSeconds + 0.55;
        clock.start();
        model.toggleSourcePlayback();
        waitUntil(0.8);
        QThread::msleep(300);
        waitUntil(volumeAt);
        model.setMasterVolume(0.25);
        const double volumeChangedAt = now();
        waitUntil(volumeAt + 0.8);
        model.toggleSourcePlayback();
        const double stoppedAt = now();
        QVERIFY(!model.playingTarget().has_value());
        waitUntil(stoppedAt + 0.5);
        recorder.terminate();
        QVERIFY(recorder.waitForFinished());
        raw += recorder.readAllStandardOutput();

        Stereo recorded(static_cast<std::size_t>(raw.size()) / sizeof(float) / 2 * 2);
        std::memcpy(recorded.data(), raw.constData(), recorded.size() * sizeof(float));
        const qint64 onset = firstFrameAbove(recorded, 0.01f);
        QVERIFY2(onset >= 0, "nothing reached the sink");
        // The first loud frame only hints at the lag: the resamplers smear it.
        const qint64 guess = onset - firstFrameAbove(loop, 0.01f / 0.85f);
        const qint64 lag = bestLag(recorded, loop, bestLag(recorded, loop, guess, 2000, 3, 0.05, 0.3), 3, 1, 0.05, 0.4);

        // The first pass, through the stall; across the seam; the second pass on
        // its own, which must sit exactly one loop later; and after the stop.
        const Match firstPass = match(recorded, loop, lag, 0.05, loopSeconds - 0.02);
        const Match acrossSeam = match(recorded, loop, lag, loopSeconds - 0.4, volumeChangedAt + 0.05);
        const qint64 secondPassLag = bestLag(recorded, loop, lag, 100, 1, loopSeconds + 0.02, volumeChangedAt + 0.05);
        const Match quieter = match(recorded, loop, lag, volumeChangedAt + 0.35, stoppedAt - 0.05);
        const Match afterStop = match(recorded, loop, lag, stoppedAt + 0.2, stoppedAt + 0.4);
        qInfo("first pass %.4f, across the seam %.4f, second-pass lag %+lld frames, gain %.3f -> %.3f -> %.2e",
              firstPass.correlation, acrossSeam.correlation, static_cast<long long>(secondPassLag - lag),
              firstPass.gain, quieter.gain, afterStop.gain);

        QVERIFY2(firstPass.correlation > 0.9, "the first pass does not sound like the loop");
        QVERIFY2(acrossSeam.correlation > 0.9, "the loop does not carry on past its end");
        QVERIFY2(std::abs(secondPassLag - lag) <= 2, "a gap or an overlap at the loop point");
        QVERIFY2(std::abs(firstPass.gain - 0.85) < 0.05, "the starting volume is not the master volume");
        QVERIFY2(std::abs(quieter.gain / firstPass.gain - 0.25 / 0.85) < 0.03, "the volume change was not followed");
        QVERIFY2(afterStop.gain < 5e-4, "sound continues after the stop");

        // The playhead restarts once, when the seam is heard: never before it
        // (the sink's buffer is not yet heard), at most a few ticks after it.
        std::vector<double> wraps;
        for (std::size_t i = 1; i < progress.size(); ++i)
            if (progress[i].second < progress[i - 1].second - 0.5)
                wraps.push_back(progress[i].first);
        QCOMPARE(wraps.size(), 1u);
        QVERIFY2(wraps[0] > loopSeconds - 0.03 && wraps[0] < loopSeconds + 0.25,
                 qPrintable(QString("restarted %1 s after the start of a %2 s loop").arg(wraps[0]).arg(loopSeconds)));
    }
};

QTEST_MAIN(RealAudioTest)
#include "RealAudioTest.moc"
