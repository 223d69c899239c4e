// The Qt platform pieces that work without a display or an audio server:
// settings on disk, the folder dialog's options, the way back to the main
// thread, timers, and everything the player decides before it opens a sink.

#include "audio/WavWriter.hpp"
#include "model/AppModel.hpp"
#include "ui/QtAudioPlayer.hpp"
#include "ui/QtAudioPlayerInternals.hpp"
#include "ui/QtPlatform.hpp"

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
        for (int i = 0; i < bytesEach; ++i)
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return bytes;
}

audio::WavData record(std::uint16_t format, std::uint16_t channels, std::uint16_t bits, std::uint16_t blockAlign,
                      audio::Bytes pcm, std::uint32_t rate = 44100) {
    return {format, channels, rate, rate * blockAlign, blockAlign, bits, std::move(pcm)};
}

QByteArray readAll(ui::detail::LoopingAudioDevice& device, std::initializer_list<qint64> chunkSizes) {
    QByteArray out;
    for (const qint64 size : chunkSizes)
        out += device.read(size);
    return out;
}

} // namespace

Q_DECLARE_METATYPE(audio::WavData)
Q_DECLARE_METATYPE(QAudioFormat::SampleFormat)

class QtPlatformTest : public QObject {
    Q_OBJECT

public:
    explicit QtPlatformTest(QString configHome) : configHome_(std::move(configHome)) {}

private slots:
    void settingsPersistUnderTheModelsKeys();
    void folderChooserOffersExistingFoldersOnly_data();
    void folderChooserOffersExistingFoldersOnly();
    void taskRunnerHandsBackOnTheMainThreadOnce();
    void taskRunnerDestructorJoinsAllWork();
    void timerTicksOnTheMainThreadUntilDestroyed();
    void playerFactoryRefusesWhatCannotPlay_data();
    void playerFactoryRefusesWhatCannotPlay();
    void samplesKeepTheirValues_data();
    void samplesKeepTheirValues();
    void loopingDeviceRepeatsWithoutSeam();
    void loopingDeviceStopsAfterItsPasses();

private:
    QString configHome_;
};

void QtPlatformTest::settingsPersistUnderTheModelsKeys() {
    const std::string folder = "/home/someone/Music/Brüche & Breaks";
    {
        ui::QtSettingsStore store;
        QVERIFY(!store.string(model::AppModel::sourceDirKey).has_value());
        store.setString(model::AppModel::sourceDirKey, folder);
        // The model takes a stored empty string as it is, so it must come back.
        store.setString(model::AppModel::outputDirKey, "");
    }

    QFile file(configHome_ + "/Marquetry/Marquetry.conf");
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName() + " was not written"));
    const QString text = QString::fromUtf8(file.readAll());
    QVERIFY2(text.contains(QString::fromUtf8(folder.c_str())), qPrintable(text));

    ui::QtSettingsStore reopened;
    QCOMPARE(reopened.string(model::AppModel::sourceDirKey).value_or("<none>"), folder);
    QCOMPARE(reopened.string(model::AppModel::outputDirKey).value_or("<none>"), std::string());
}

void QtPlatformTest::folderChooserOffersExistingFoldersOnly_data() {
    QTest::addColumn<bool>("canCreateFolders");
    QTest::addColumn<bool>("accept");
    QTest::newRow("source folder, chosen") << false << true;
    QTest::newRow("output folder, chosen") << true << true;
    QTest::newRow("cancelled") << false << false;
}

void QtPlatformTest::folderChooserOffersExistingFoldersOnly() {
    QFETCH(bool, canCreateFolders);
    QFETCH(bool, accept);
    QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkpath("start/picked"));
    const QString start = root.filePath("start");
    const QString picked = root.filePath("start/picked");

    // The dialog is modal: inspect and answer it from inside its own loop.
    struct Seen {
        bool found = false;
        QFileDialog::FileMode mode = QFileDialog::AnyFile;
        bool dirsOnly = false;
        bool readOnly = false;
        QString directory;
    } seen;
    QTimer poll;
    poll.setInterval(10);
    connect(&poll, &QTimer::timeout, this, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr)
            return;
        poll.stop();
        seen = {true, dialog->fileMode(), dialog->testOption(QFileDialog::ShowDirsOnly),
                dialog->testOption(QFileDialog::ReadOnly), dialog->directory().absolutePath()};
        if (accept) {
            dialog->setDirectory(picked);
            static_cast<QDialog*>(dialog)->accept(); // public in QDialog
        } else {
            dialog->reject();
        }
    });
    poll.start();

    ui::QtFolderChooser chooser;
    const auto chosen = chooser.chooseFolder({canCreateFolders, start.toStdString()});

    QVERIFY(seen.found);
    QCOMPARE(seen.mode, QFileDialog::Directory);
    QVERIFY(seen.dirsOnly);
    QCOMPARE(seen.readOnly, !canCreateFolders);
    QCOMPARE(seen.directory, QDir(start).absolutePath());
    if (accept)
        QCOMPARE(QString::fromStdString(chosen.value_or("<none>")), picked);
    else
        QVERIFY(!chosen.has_value());
}

void QtPlatformTest::taskRunnerHandsBackOnTheMainThreadOnce() {
    ui::QtTaskRunner runner;
    const auto mainThread = std::this_thread::get_id();
    std::thread::id workerThread;
    std::thread::id handBackThread;
    int handBacks = 0;

    runner.runInBackground([&] {
        workerThread = std::this_thread::get_id();
        runner.runOnMain([&] {
            handBackThread = std::this_thread::get_id();
            ++handBacks;
        });
    });
    QTRY_COMPARE(handBacks, 1);
    QVERIFY(workerThread != mainThread);
    QVERIFY(handBackThread == mainThread);

    // From the main thread too, the work waits for the current event to end.
    bool ranLater = false;
    runner.runOnMain([&] { ranLater = true; });
    QVERIFY(!ranLater);
    QTRY_VERIFY(ranLater);
    QCoreApplication::processEvents();
    QCOMPARE(handBacks, 1);
}

void QtPlatformTest::taskRunnerDestructorJoinsAllWork() {
    std::atomic<int> finished = 0;
    std::promise<void> release;
    {
        ui::QtTaskRunner runner;
        // Finished runs are reaped as new ones start.
        for (int i = 0; i < 20; ++i)
            runner.runInBackground([&] { ++finished; });
        // Work still running when the runner goes, and work it starts then.
        runner.runInBackground([&, go = release.get_future().share()] {
            go.wait();
            runner.runInBackground([&] { ++finished; });
            ++finished;
        });
        release.set_value();
    }
    QCOMPARE(finished.load(), 22);
}

void QtPlatformTest::timerTicksOnTheMainThreadUntilDestroyed() {
    ui::QtTimerFactory timers;
    int ticks = 0;
    bool offMainThread = false;
    auto timer = timers.startRepeating(0.03, [&] {
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

void QtPlatformTest::playerFactoryRefusesWhatCannotPlay_data() {
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QString>("message");
    const auto image = [](const audio::WavData& wav) {
        const audio::Bytes bytes = audio::buildWavFileData(wav, wav.pcmData);
        return QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()));
    };
    const audio::Bytes fourBytes(4, 0);
    QTest::newRow("not a WAV image") << QByteArray("RIFF but nothing more") << "WAV file is too small.";
    QTest::newRow("no channels") << image(record(1, 0, 16, 2, fourBytes)) << "The audio has no channels.";
    QTest::newRow("rate 0") << image(record(1, 2, 16, 4, fourBytes, 0)) << "The audio has a sample rate of 0 Hz.";
    QTest::newRow("12-bit integer") << image(record(1, 1, 12, 2, fourBytes))
                                    << "12-bit integer samples cannot be played.";
    QTest::newRow("16-bit float") << image(record(3, 1, 16, 2, fourBytes))
                                  << "16-bit floating-point samples cannot be played.";
    QTest::newRow("frames too small") << image(record(1, 2, 16, 2, fourBytes))
                                      << "Frames of 2 bytes cannot hold 2 channels of 16-bit samples.";
}

void QtPlatformTest::playerFactoryRefusesWhatCannotPlay() {
    QFETCH(QByteArray, image);
    QFETCH(QString, message);
    ui::QtAudioPlayerFactory players;
    try {
        players.createPlayer(audio::Bytes(image.begin(), image.end()));
        QFAIL("a player was created");
    } catch (const std::exception& error) {
        QCOMPARE(QString::fromUtf8(error.what()), message);
    }
}

void QtPlatformTest::samplesKeepTheirValues_data() {
    QTest::addColumn<audio::WavData>("wav");
    QTest::addColumn<QAudioFormat::SampleFormat>("format");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("8-bit unsigned, stereo") << record(1, 2, 8, 2, {0x00, 0xFF, 0x80, 0x7F}) << QAudioFormat::UInt8
                                           << nativeBytes<quint8>({0x00, 0xFF, 0x80, 0x7F});
    QTest::newRow("16-bit, mono") << record(1, 1, 16, 2, littleEndian({0x8001, 0x7FFF, 0xFFFF}, 2))
                                  << QAudioFormat::Int16 << nativeBytes<qint16>({-32767, 32767, -1});
    QTest::newRow("24-bit widens to the top of 32")
        << record(1, 1, 24, 3, littleEndian({0x7FFFFF, 0x800000, 0x000001, 0xFFFFFF}, 3)) << QAudioFormat::Int32
        << nativeBytes<qint32>({0x7FFFFF00, INT32_MIN, 0x100, -0x100});
    QTest::newRow("32-bit, three channels") << record(1, 3, 32, 12, littleEndian({0x80000000, 0x7FFFFFFF, 5}, 4))
                                            << QAudioFormat::Int32 << nativeBytes<qint32>({INT32_MIN, INT32_MAX, 5});
    QTest::newRow("32-bit float") << record(3, 1, 32, 4, littleEndian({0x3F000000, 0xBF800000}, 4))
                                  << QAudioFormat::Float << nativeBytes<float>({0.5f, -1.0f});
    QTest::newRow("64-bit float narrows, clipping the unrepresentable")
        << record(3, 2, 64, 16, littleEndian({0x3FE0000000000000, 0xBFF0000000000000, 0x7E37E43C8800759C,
                                              0xFE37E43C8800759C}, 8))
        << QAudioFormat::Float << nativeBytes<float>({0.5f, -1.0f, FLT_MAX, -FLT_MAX});
    QTest::newRow("padding between frames dropped")
        << record(1, 2, 16, 6, littleEndian({0x0001, 0x0002, 0xEEEE, 0x0003, 0x0004, 0xEEEE}, 2))
        << QAudioFormat::Int16 << nativeBytes<qint16>({1, 2, 3, 4});
    QTest::newRow("no frames") << record(1, 6, 16, 12, {}) << QAudioFormat::Int16 << QByteArray();
}

void QtPlatformTest::samplesKeepTheirValues() {
    QFETCH(audio::WavData, wav);
    QFETCH(QAudioFormat::SampleFormat, format);
    QFETCH(QByteArray, expected);
    const ui::detail::PlayableAudio playable = ui::detail::makePlayableAudio(wav);
    QCOMPARE(playable.format.sampleFormat(), format);
    QCOMPARE(playable.format.channelCount(), int{wav.channels});
    QCOMPARE(playable.format.sampleRate(), int(wav.sampleRate));
    QCOMPARE(playable.pcm.toHex(' '), expected.toHex(' '));
}

void QtPlatformTest::loopingDeviceRepeatsWithoutSeam() {
    const QByteArray pass("0123456789");
    ui::detail::LoopingAudioDevice device(pass, -1);
    QVERIFY(device.isSequential());

    // Reads of every size, several ending or starting on the seam, and one
    // longer than a whole pass.
    const QByteArray heard = readAll(device, {3, 7, 4, 13, 1, 2, 5});
    QCOMPARE(heard, pass.repeated(4).left(35));
    QCOMPARE(device.bytesRead(), 35);
    QVERIFY(device.bytesAvailable() >= pass.size());

    device.rewind(-1);
    QCOMPARE(device.read(4), QByteArray("0123"));
}

void QtPlatformTest::loopingDeviceStopsAfterItsPasses() {
    ui::detail::LoopingAudioDevice device("abcd", 2);
    QCOMPARE(readAll(device, {3, 3, 3, 3}), QByteArray("abcdabcd"));
    QCOMPARE(device.bytesAvailable(), 0);
    QVERIFY(device.atEnd());

    device.rewind(1);
    QCOMPARE(readAll(device, {10}), QByteArray("abcd"));

    // Nothing to repeat must not mean reading for ever.
    ui::detail::LoopingAudioDevice empty(QByteArray(), -1);
    QCOMPARE(empty.read(16), QByteArray());
    QCOMPARE(empty.bytesAvailable(), 0);
}

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
