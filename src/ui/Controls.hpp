#pragma once

// The small building blocks of the main window's rows: the styled controls
// it makes many of, and the quiet ways it brings them up to date. Main
// thread only.

#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class QColor;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;
class QSpinBox;
class QWidget;

namespace marquetry::ui {

/// The steps of a 0-to-1 slider: a value v shows as v * sliderSteps.
inline constexpr int sliderSteps = 1000;

/// Sets the colour `widget` draws its text in.
void setTextColor(QWidget* widget, const QColor& color);

/// A horizontal layout on `row` without margins; `spacing` < 0 keeps the
/// style's spacing.
QHBoxLayout* rowLayout(QWidget* row, int spacing = -1);

/// A push button titled `text`, with the object name `name`.
QPushButton* button(const QString& text, const char* name, QWidget* parent);

/// A bold heading over a panel.
QLabel* heading(const QString& text, QWidget* parent);

/// A caption in the smaller font and the secondary colour, named `name`.
QLabel* secondaryCaption(const QString& text, const char* name, QWidget* parent);

/// The status line: one line of text in the secondary colour that elides
/// rather than widening the window when a long message arrives.
QLabel* statusLine(QWidget* parent);

/// Makes `target` (and whatever lies on it) take files dropped from a file
/// manager: a drag is accepted, as a copy, only when everything it carries
/// is a local file, and the drop hands their paths to `onDrop`. Any other
/// drag is refused and its drop ignored.
void acceptFileDrops(QWidget* target, std::function<void(const std::vector<std::string>& files)> onDrop);

/// Adds to `row` a 0-to-1 slider named `name` and, after it, its value
/// label named `name` + "Value", returned through `valueLabel`.
QSlider* addFader(QHBoxLayout* row, QLabel*& valueLabel, const char* name, QWidget* parent);

// Showing a model value without the control reporting it back as an edit.

/// Sets `field`'s text to `value` unless it already reads so, which keeps
/// the cursor where the user is typing.
void syncText(QLineEdit* field, const std::string& value);
/// Shows `value`, clamped to the box's range.
void syncSpinBox(QSpinBox* box, std::int64_t value);
/// Shows `value` (0 to 1, clamped) on `slider` and as a truncated
/// percentage on `valueLabel`.
void syncSlider(QSlider* slider, QLabel* valueLabel, double value);

/// Removes `widget` from its layout at once and deletes it once control is
/// back in the event loop, since the click that led here may be its own.
void retire(QWidget* widget);

} // namespace marquetry::ui
