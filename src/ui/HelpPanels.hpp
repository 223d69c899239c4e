#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

class QAction;
class QMenuBar;

namespace marquetry::ui {

/// Owns the one help window: opens it, raises it, and forgets it when it
/// closes, so the next request builds a fresh one on the Welcome topic.
/// Main thread only.
class HelpPanels final : public QObject {
    Q_OBJECT
public:
    /// The process-wide instance, created on first use.
    static HelpPanels& shared();

    /// Opens the help window, or raises it keeping its topic.
    void showHelp();
    /// The open help window, or null; for screenshots and tests.
    QWidget* helpWindow() const { return helpWindow_; }

    /// The close notice of a window this object watches: forgets (and
    /// disposes of) the help window when the closing window carries the help
    /// window's identifier; any other window is ignored.
    void windowWillClose(QWidget* window);

    /// The object name that marks the help window.
    static constexpr const char* windowIdentifier = "marquetry-help-window";

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    HelpPanels() = default;
    static void disposeAtExit();

    QPointer<QWidget> helpWindow_;
    // A closed window whose deferred deletion may never run if the event
    // loop ends first.
    QPointer<QWidget> closedWindow_;
};

/// Adds the Help menu to `menuBar`: its one item, "Marquetry Help" with the
/// shortcut Ctrl+? (typed Ctrl+Shift+/ on a US keyboard; Command instead of
/// Ctrl on macOS), opens the help window. Returns that item.
QAction* addHelpMenu(QMenuBar& menuBar);

} // namespace marquetry::ui
