// The Qt platform pieces that work without a display or an audio server:
// settings on disk, the folder dialog, the way back to the main thread,
// timers, and what the player does to samples before it opens a sink.

#include "support/WavImageBuilder.hpp"
#include "model/AppModel.hpp"
#include "ui/LoopingDevice.hpp"
#include "ui/QtPlatform.hpp"
#include "ui/SampleConversion.hpp"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <cfloat>
#include <future>
#include <thread>

using namespace marquetry;
using audio::test::record;

namespace {

// Native-order bytes of `values`, as QAudioSink expects them.
template <typename T>
QByteArray nativeBytes(std::initializer_list<T> values) {
    QByteArray bytes;
    for (const T value : values)
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    return bytes;
}

audio::Bytes littleEndian(std::initializer_list<std::uint64_t> values, int bytesEach) {
    audio::Bytes bytes;
    for (const std::uint64_t value : values)
        audio::test::putLE(bytes, value, bytesEach);
    return bytes;
}

} // namespace

Q_DECLARE_METATYPE(audio::WavData)
Q_DECLARE_METATYPE(QAudioFormat::SampleFormat)

class QtPlatformTest : public QObject {
    Q_OBJECT

public:
    explicit QtPlatformTest(QString configHome) : configHome_(std::move(configHome)) {}

private slots:
    void settingsAreWrittenToDiskAndReadBack() {
        const std::string folder = "/home/someone/Music/Brüche & Breaks";
        {
            ui::QtSettingsStore store;
            QVERIFY(!store.string(model::AppModel::sourceDirKey).has_value());
            store.setString(model::AppModel::sourceDirKey, folder);
            // The model takes a stored empty string as it is, so it must come back.
            store.setString(model::AppModel::outputDirKey, "");
        }
        // Other stores in this process share a cache; only the file shows the
        // values were written through.
        QFile file(configHome_ + "/Marquetry/Marquetry.conf");
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(QString::fromUtf8(file.readAll()).contains(QString::fromStdString(folder)));

        ui::QtSettingsStore reopened;
        QCOMPARE(reopened.string(model::AppModel::sourceDirKey).value_or("<none>"), folder);
        QCOMPARE(reopened.string(model::AppModel::outputDirKey).value_or("<none>"), std::string());
    }

    void folderChooserStartsWhereAskedAndCancelChoosesNothing() {
        QTemporaryDir start;
        bool readOnly = false;
        QString shownFolder;
        // The dialog is modal: inspect and answer it from inside its own loop.
        QTimer poll;
        connect(&poll, &QTimer::timeout, this, [&] {
            if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
                poll.stop();
                readOnly = dialog->testOption(QFileDialog::ReadOnly);
                shownFolder = dialog->directory().absolutePath();
                dialog->reject();
            }
        });
        poll.start(10);
        // Source folders are only picked, so that dialog offers no New Folder.
        QVERIFY(!ui::QtFolderChooser().chooseFolder({false, start.path().toStdString()}).has_value());
        QCOMPARE(shownFolder, QDir(start.path()).absolutePath());
        QVERIFY(readOnly);
    }

    void taskRunnerHandsBackOnTheMainThreadOnceAndJoinsAllWork() {
        const auto mainThread = std::this_thread::get_id();
        std::thread::id workerThread, handBackThread;
        int handBacks = 0;
        std::atomic<int> finished = 0;
        std::promise<void> release;
        {
            ui::QtTaskRunner runner;
            runner.runInBackground([&] {
                workerThread = std::this_thread::get_id();
                runner.runOnMain([&] {
                    handBackThread = std::this_thread::get_id();
                    ++handBacks;
                });
            });
            QTRY_COMPARE(handBacks, 1);
            QVERIFY(workerThread != mainThread && handBackThread == mainThread);
            // From the main thread too, the work waits for the current event to end.
            bool ranLater = false;
            runner.runOnMain([&] { ranLater = true; });
            QVERIFY(!ranLater);
            QTRY_VERIFY(ranLater);

            // Finished runs are reaped as new ones start; work still running when
            // the runner goes, and work it starts then, are waited for.
            for (int i = 0; i < 20; ++i)
                runner.runInBackground([&] { ++finished; });
            runner.runInBackground([&, go = release.get_future().share()] {
                go.wait();
                runner.runInBackground([&] { ++finished; });
                ++finished;
            });
            release.set_value();
        }
        QCOMPARE(finished.load(), 22);
        QCoreApplication::processEvents();
        QCOMPARE(handBacks, 1);
    }

    void timerTicksOnTheMainThreadUntilDestroyed() {
        int ticks = 0;
        bool offMainThread = false;
        auto timer = ui::QtTimerFactory().startRepeating(0.03, [&] {
            ++ticks;
            offMainThread |= QThread::currentThread() != QCoreApplication::instance()->thread();
        });
        QTRY_VERIFY(ticks >= 3);
        QVERIFY(!offMainThread);

        timer.reset();
        const int ticksAtStop = ticks;
        QTest::qWait(100);
        QCOMPARE(ticks, ticksAtStop);
    }

    void samplesKeepTheirValuesOrAreRefused_data() {
        QTest::addColumn<audio::WavData>("wav");
        QTest::addColumn<QAudioFormat::SampleFormat>("format");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QString>("refusal");
        using F = QAudioFormat;
        QTest::newRow("8-bit unsigned, stereo") << record(1, 2, 2, 8, {0x00, 0xFF, 0x80, 0x7F}) << F::UInt8
                                               << nativeBytes<quint8>({0x00, 0xFF, 0x80, 0x7F}) << "";
        QTest::newRow("24-bit widens to the top of 32")
            << record(1, 1, 3, 24, littleEndian({0x7FFFFF, 0x800000, 0x000001, 0xFFFFFF}, 3)) << F::Int32
            << nativeBytes<qint32>({0x7FFFFF00, INT32_MIN, 0x100, -0x100}) << "";
        QTest::newRow("32-bit float") << record(3, 1, 4, 32, littleEndian({0x3F000000, 0xBF800000}, 4)) << F::Float
                                      << nativeBytes<float>({0.5f, -1.0f}) << "";
        QTest::newRow("64-bit float narrows, clipping the unrepresentable")
            << record(3, 2, 16, 64, littleEndian({0x3FE0000000000000, 0xBFF0000000000000, 0x7E37E43C8800759C,
                                                  0xFE37E43C8800759C}, 8))
            << F::Float << nativeBytes<float>({0.5f, -1.0f, FLT_MAX, -FLT_MAX}) << "";
        QTest::newRow("16-bit, padding between frames dropped")
            << record(1, 2, 6, 16, littleEndian({0x0001, 0x8002, 0xEEEE, 0x7FFF, 0xFFFF, 0xEEEE}, 2)) << F::Int16
            << nativeBytes<qint16>({1, -32766, 32767, -1}) << "";
        const audio::Bytes four(4, 0);
        QTest::newRow("no channels") << record(1, 0, 2, 16, four) << F::Unknown << QByteArray()
                                     << "The audio has no channels.";
        QTest::newRow("rate 0") << record(1, 2, 4, 16, four, 0) << F::Unknown << QByteArray()
                                << "The audio has a sample rate of 0 Hz.";
        QTest::newRow("frames too small") << record(1, 2, 2, 16, four) << F::Unknown << QByteArray()
                                          << "Frames of 2 bytes cannot hold 2 channels of 16-bit samples.";
    }

    void samplesKeepTheirValuesOrAreRefused() {
        QFETCH(audio::WavData, wav);
        QFETCH(QAudioFormat::SampleFormat, format);
        QFETCH(QByteArray, expected);
        QFETCH(QString, refusal);
        try {
            const ui::PlayableAudio playable = ui::makePlayableAudio(wav);
            QVERIFY2(refusal.isEmpty(), "no refusal");
            QCOMPARE(playable.format.sampleFormat(), format);
            QCOMPARE(playable.format.channelCount(), int{wav.channels});
            QCOMPARE(playable.format.sampleRate(), int(wav.sampleRate));
            QCOMPARE(playable.pcm.toHex(' '), expected.toHex(' '));
        } catch (const std::runtime_error& error) {
            QCOMPARE(QString::fromUtf8(error.what()), refusal);
        }
    }

    void loopingDeviceRepeatsWithoutSeam() {
        const QByteArray pass("0123456789");
        ui::LoopingAudioDevice endless(pass);
        // Reads of every size, several ending or starting on the seam, and one
        // longer than a whole pass.
        QByteArray read;
        for (const qint64 size : {3, 7, 4, 13, 1, 2, 5})
            read += endless.read(size);
        QCOMPARE(read, pass.repeated(4).left(35));
        QVERIFY(endless.bytesAvailable() >= pass.size());
        endless.rewind();
        QCOMPARE(endless.read(4), QByteArray("0123"));

        // Nothing to repeat must not mean reading for ever.
        ui::LoopingAudioDevice empty{QByteArray()};
        QCOMPARE(empty.read(16), QByteArray());
        QCOMPARE(empty.bytesAvailable(), 0);
    }

private:
    QString configHome_;
};

// The settings must land in a throwaway home, so the environment is set
// before QApplication (and with it QSettings) first looks at it.
int main(int argc, char** argv) {
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    const QString configHome = home.filePath("config");
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", configHome.toLocal8Bit());

    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Marquetry");
    QCoreApplication::setApplicationName("Marquetry");
    QtPlatformTest test(configHome);
    return QTest::qExec(&test, argc, argv);
}

#include "QtPlatformTest.moc"
