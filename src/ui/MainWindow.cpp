#include "ui/MainWindow.hpp"

#include <QAction>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStringList>

#include <algorithm>

namespace marquetry::ui {
namespace {

// Room kept for a title bar and borders, which are not known before the
// window is shown.
constexpr QMargins frameAllowance(8, 40, 8, 8);

} // namespace

QRect fitOnScreen(const QRect& wanted, const QRect& available, const QMargins& frame) {
    const QRect room = available.marginsRemoved(frame);
    const QSize size = wanted.size().boundedTo(room.size()).expandedTo(QSize(1, 1));
    const int x = std::clamp(wanted.x(), room.left(), std::max(room.left(), room.right() + 1 - size.width()));
    const int y = std::clamp(wanted.y(), room.top(), std::max(room.top(), room.bottom() + 1 - size.height()));
    return {QPoint(x, y), size};
}

std::string geometryText(const QRect& geometry) {
    return QStringLiteral("%1,%2,%3,%4")
        .arg(geometry.x())
        .arg(geometry.y())
        .arg(geometry.width())
        .arg(geometry.height())
        .toStdString();
}

std::optional<QRect> geometryFromText(const std::string& text) {
    const QStringList parts = QString::fromStdString(text).split(QLatin1Char(','));
    if (parts.size() != 4)
        return std::nullopt;
    int values[4] = {};
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        values[i] = parts[i].trimmed().toInt(&ok);
        if (!ok)
            return std::nullopt;
    }
    if (values[2] <= 0 || values[3] <= 0)
        return std::nullopt;
    return QRect(values[0], values[1], values[2], values[3]);
}

MainWindow::MainWindow(model::Platform platform, ContentView::AudioFileChooser chooseAudioFiles,
                       std::optional<std::string> initialSelection, QWidget* parent)
    : QMainWindow(parent), settings_(platform.settings) {
    // An untitled window shows the application's name on macOS but nothing
    // elsewhere.
    setWindowTitle(QStringLiteral("Marquetry"));
    content_ = new ContentView(std::move(platform), std::move(chooseAudioFiles), std::move(initialSelection));
    scrollArea_ = new QScrollArea(this);
    scrollArea_->setObjectName(QStringLiteral("contentScrollArea"));
    scrollArea_->setFrameShape(QFrame::NoFrame);
    // The content fills the window and keeps its own minimum size: below
    // it, scroll bars appear.
    scrollArea_->setWidgetResizable(true);
    scrollArea_->setWidget(content_);
    setCentralWidget(scrollArea_);

    const ContentView::Commands& commands = content_->commands();
    QMenu* file = menuBar()->addMenu(QStringLiteral("File"));
    file->addAction(commands.generate);
    file->addAction(commands.exportSelected);
    file->addSeparator();
    QAction* quit = file->addAction(QStringLiteral("Quit"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, this, &QWidget::close);
    QMenu* history = menuBar()->addMenu(QStringLiteral("History"));
    history->addAction(commands.back);
    history->addAction(commands.forward);
    QMenu* playback = menuBar()->addMenu(QStringLiteral("Playback"));
    playback->addAction(commands.stopPlayback);

    placeOnScreen();
    if (const std::optional<std::string> width = settings_.string(sourceListWidthKey)) {
        bool ok = false;
        const int stored = QString::fromStdString(*width).toInt(&ok);
        if (ok && stored > 0)
            content_->setSourceListWidth(stored);
    }
}

void MainWindow::placeOnScreen() {
    // The content as large as it likes (at least its minimum), plus the
    // menu bar; a stored geometry wins where there is one.
    const QSize content = content_->sizeHint().expandedTo(content_->minimumSize());
    const QSize wanted(content.width(), content.height() + menuBar()->sizeHint().height());
    const std::optional<std::string> storedText = settings_.string(geometryKey);
    const std::optional<QRect> stored = storedText ? geometryFromText(*storedText) : std::nullopt;

    QScreen* screen = stored ? QGuiApplication::screenAt(stored->center()) : nullptr;
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        resize(stored ? stored->size() : wanted);
        return;
    }
    const QRect available = screen->availableGeometry();
    QRect geometry = stored.value_or(QRect(QPoint(), wanted));
    if (!stored)
        geometry.moveCenter(available.center());
    setGeometry(fitOnScreen(geometry, available, frameAllowance));
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // A run nobody will see: it stops at its next check, so quitting does
    // not wait for it.
    content_->model().cancelGeneration();
    settings_.setString(geometryKey, geometryText(normalGeometry()));
    settings_.setString(sourceListWidthKey, std::to_string(content_->sourceListWidth()));
    QMainWindow::closeEvent(event);
}

} // namespace marquetry::ui
