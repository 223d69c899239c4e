#pragma once

#include "ui/ContentView.hpp"

#include <QMainWindow>
#include <QRect>

#include <optional>
#include <string>

class QScrollArea;

namespace marquetry::ui {

/// Where a window whose content should have `wanted` geometry goes on a
/// screen whose free area is `available`: as large as wanted but no larger
/// than the area, moved inside it, leaving `frame` around the content for the
/// window manager's decorations. Pure.
QRect fitOnScreen(const QRect& wanted, const QRect& available, const QMargins& frame);

/// "x,y,width,height" for a stored window geometry, and back; none for text
/// that is not four whole numbers with a positive size.
std::string geometryText(const QRect& geometry);
std::optional<QRect> geometryFromText(const std::string& text);

/// The main window: the content view inside a scroll area, so that the
/// window can be smaller than the content's minimum size (the content then
/// scrolls), the File, History and Playback menus over the view's commands,
/// and a size and place remembered across launches under `geometryKey`, as
/// is the source list's width under `sourceListWidthKey`. It
/// opens fully on the screen it lands on. Main thread only.
class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    static constexpr const char* geometryKey = "marquetry.window.geometry";
    static constexpr const char* sourceListWidthKey = "marquetry.window.sourceListWidth";

    /// `platform`'s services must outlive the window; its settings hold the
    /// window's geometry too. `initialSelection` as for ContentView.
    MainWindow(model::Platform platform, ContentView::AudioFileChooser chooseAudioFiles,
               std::optional<std::string> initialSelection = std::nullopt, QWidget* parent = nullptr);

    ContentView& content() { return *content_; }
    QScrollArea& scrollArea() { return *scrollArea_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void placeOnScreen();

    model::SettingsStore& settings_;
    ContentView* content_ = nullptr;
    QScrollArea* scrollArea_ = nullptr;
};

} // namespace marquetry::ui
