#include "ui/QtPlatform.hpp"

#include "model/SystemServices.hpp"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace marquetry::ui {
namespace {

QString toQString(const std::string& text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

class QtRepeatingTimer final : public playback::RepeatingTimer {
public:
    QtRepeatingTimer(int intervalMs, std::function<void()> tick) {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setInterval(intervalMs);
        QObject::connect(&timer_, &QTimer::timeout, &timer_, std::move(tick));
        timer_.start();
    }

private:
    // Destroying a QTimer stops it and drops any tick not yet delivered.
    QTimer timer_;
};

} // namespace

std::optional<std::string> QtSettingsStore::string(const std::string& key) const {
    const QVariant value = settings_.value(toQString(key));
    if (!value.isValid())
        return std::nullopt;
    return value.toString().toStdString();
}

void QtSettingsStore::setString(const std::string& key, const std::string& value) {
    settings_.setValue(toQString(key), toQString(value));
    settings_.sync();
}

std::optional<std::string> QtFolderChooser::chooseFolder(const Options& options) {
    QFileDialog::Options dialogOptions = QFileDialog::ShowDirsOnly;
    // A read-only dialog offers no "New Folder".
    if (!options.canCreateFolders)
        dialogOptions |= QFileDialog::ReadOnly;
    const QString folder = QFileDialog::getExistingDirectory(QApplication::activeWindow(), QObject::tr("Choose Folder"),
                                                             toQString(options.initialFolder), dialogOptions);
    if (folder.isEmpty())
        return std::nullopt;
    return folder.toStdString();
}

std::vector<std::string> chooseAudioFiles(const std::string& folder) {
    // Both spellings, since the desktop's own dialogs match case exactly
    // and sample packs are full of "KICK.WAV".
    QStringList patterns;
    for (const char* extension : {"wav", "aif", "aiff", "aifc", "flac", "ogg", "opus", "mp3", "rf64", "w64", "caf"})
        patterns << QStringLiteral("*.") + QLatin1String(extension)
                 << QStringLiteral("*.") + QString::fromLatin1(extension).toUpper();
    const QString filter = QObject::tr("Audio files (%1);;All files (*)").arg(patterns.join(QLatin1Char(' ')));
    const QStringList chosen = QFileDialog::getOpenFileNames(
        QApplication::activeWindow(), QObject::tr("Import Audio Files"), toQString(folder), filter);
    std::vector<std::string> files;
    for (const QString& file : chosen)
        files.push_back(file.toStdString());
    return files;
}

bool QtFileBrowser::openFolder(const std::string& path) {
    return QDesktopServices::openUrl(QUrl::fromLocalFile(toQString(path)));
}

std::unique_ptr<playback::RepeatingTimer> QtTimerFactory::startRepeating(double intervalSeconds,
                                                                         std::function<void()> tick) {
    // An interval of 0 would fire on every pass of the event loop.
    const double milliseconds = std::isfinite(intervalSeconds) ? std::round(intervalSeconds * 1000.0) : 1.0;
    const int intervalMs = static_cast<int>(std::clamp(milliseconds, 1.0, 24.0 * 3600.0 * 1000.0));
    return std::make_unique<QtRepeatingTimer>(intervalMs, std::move(tick));
}

QtTaskRunner::~QtTaskRunner() {
    // Work may start more work while we wait, so join in rounds, never
    // holding the lock that runInBackground needs.
    for (;;) {
        std::vector<Worker> round;
        {
            const std::lock_guard lock(mutex_);
            round.swap(workers_);
        }
        if (round.empty())
            break;
        for (Worker& worker : round)
            worker.thread.join();
    }
}

void QtTaskRunner::runWhenIdle(std::function<void()> work) {
    runInBackground([work = std::move(work)] {
        model::runThisThreadWhenIdle();
        work();
    });
}

void QtTaskRunner::runInBackground(std::function<void()> work) {
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([work = std::move(work), finished] {
        work();
        finished->store(true, std::memory_order_release);
    });

    std::vector<Worker> done;
    {
        const std::lock_guard lock(mutex_);
        const auto firstDone = std::partition(workers_.begin(), workers_.end(), [](const Worker& worker) {
            return !worker.finished->load(std::memory_order_acquire);
        });
        std::move(firstDone, workers_.end(), std::back_inserter(done));
        workers_.erase(firstDone, workers_.end());
        workers_.push_back({std::move(thread), std::move(finished)});
    }
    // Their flag is set as their last act, so these joins return at once.
    for (Worker& worker : done)
        worker.thread.join();
}

void QtTaskRunner::runOnMain(std::function<void()> work) {
    QMetaObject::invokeMethod(qApp, std::move(work), Qt::QueuedConnection);
}

} // namespace marquetry::ui
