#include "ui/HelpPanels.hpp"

#include "ui/MarquetryHelpView.hpp"

#include <QAction>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

namespace marquetry::ui {

namespace {

// Where the help window's content goes on a screen with `screen` geometry:
// 980 x 640 with its bottom-left corner 170 right of and 120 above the
// screen's bottom-left corner, moved down onto `available` when the screen
// is too short for that.
QRect windowGeometry(const QRect& screen, const QRect& available) {
    constexpr int left = 170, bottom = 120, width = 980, height = 640;
    // The position is measured from the screen's bottom edge; Qt's origin is
    // at the top.
    const int top = std::max(screen.y() + screen.height() - bottom - height, available.y());
    return {screen.x() + left, top, width, height};
}

} // namespace

HelpPanels& HelpPanels::shared() {
    static HelpPanels* const instance = [] {
        // Outlives the application on purpose, so that the post routine below
        // can still reach it while QApplication is being torn down.
        auto* panels = new HelpPanels;
        qAddPostRoutine(&HelpPanels::disposeAtExit);
        return panels;
    }();
    return *instance;
}

void HelpPanels::disposeAtExit() {
    // Widgets must go before QApplication does; an open help window has no
    // other owner that would delete it.
    HelpPanels& panels = shared();
    delete panels.helpWindow_.data();
    delete panels.closedWindow_.data();
}

void HelpPanels::showHelp() {
    if (helpWindow_) {
        if (helpWindow_->isMinimized())
            helpWindow_->showNormal();
        helpWindow_->show();
        helpWindow_->raise();
        helpWindow_->activateWindow();
        return;
    }

    auto* window = new QWidget(nullptr, Qt::Window);
    window->setWindowTitle(QStringLiteral("Marquetry Help"));
    window->setObjectName(QString::fromLatin1(windowIdentifier));
    // Help is an accessory: closing the main window still ends the program.
    window->setAttribute(Qt::WA_QuitOnClose, false);
    auto* column = new QVBoxLayout(window);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(new MarquetryHelpView(window));
    // An explicit minimum overrides the one the layout would take from the
    // view (860 x 580), so the window can be made narrower than its page.
    window->setMinimumSize(760, 500);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->setGeometry(windowGeometry(screen->geometry(), screen->availableGeometry()));
    else
        window->resize(980, 640);
    window->installEventFilter(this);
    auto* close = new QAction(window);
    close->setShortcuts({QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)});
    connect(close, &QAction::triggered, window, &QWidget::close);
    window->addAction(close);

    window->show();
    window->raise();
    window->activateWindow();
    helpWindow_ = window;
}

void HelpPanels::windowWillClose(QWidget* window) {
    if (window == nullptr || window->objectName() != QLatin1String(windowIdentifier))
        return;
    // Closing only hides a window; this object is the help window's one
    // owner, so forgetting it means disposing of it too. Later, because the
    // window is still in the middle of handling its close.
    if (window == helpWindow_) {
        window->deleteLater();
        closedWindow_ = window;
    }
    helpWindow_ = nullptr;
}

bool HelpPanels::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Close && watched->isWidgetType())
        windowWillClose(static_cast<QWidget*>(watched));
    return QObject::eventFilter(watched, event);
}

QAction* addHelpMenu(QMenuBar& menuBar) {
    QMenu* help = menuBar.addMenu(QStringLiteral("Help"));
    QAction* showHelp = help->addAction(QStringLiteral("Marquetry Help"));
    // The menu shows Ctrl+Shift+? (Command on macOS, where Qt reads Ctrl as
    // Command). "?" is itself a shifted key, and X11 reports Ctrl+Shift+/ as
    // the "?" it types with Ctrl alone (verified under Xvfb), so that form
    // is listed too.
    showHelp->setShortcuts({QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Question),
                            QKeySequence(Qt::CTRL | Qt::Key_Question)});
    // Keeps macOS from moving the item into the application menu.
    showHelp->setMenuRole(QAction::NoRole);
    QObject::connect(showHelp, &QAction::triggered, &HelpPanels::shared(), &HelpPanels::showHelp);
    return showHelp;
}

} // namespace marquetry::ui
