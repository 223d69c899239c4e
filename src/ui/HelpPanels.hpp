#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

namespace marquetry::ui {

/// Owns the one help window: opens it, raises it, and forgets it when it
/// closes, so the next request builds a fresh one on the Welcome topic.
class HelpPanels final : public QObject {
    Q_OBJECT
public:
    static HelpPanels& shared();

    /// Opens the help window, or raises it keeping its topic.
    void showHelp();
    QWidget* helpWindow() const { return helpWindow_; }

    static constexpr const char* windowIdentifier = "marquetry-help-window";

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    HelpPanels() = default;
    QPointer<QWidget> helpWindow_;
};

} // namespace marquetry::ui
