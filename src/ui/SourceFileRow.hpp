#pragma once

#include <QWidget>

#include <functional>
#include <string>

class QAbstractButton;
class QCheckBox;
class QLabel;

namespace marquetry::ui {

/// One file of the source list: a borderless button with a radio-style mark
/// and the file name, which selects the file, with the loop's length and
/// format (or why the reader refuses it) in small print under the name, and,
/// in Mashup Mode only, a checkbox for the mashup pool. Holds no state beyond what it was last
/// given; every action goes out through a callback. Main thread only.
class SourceFileRow final : public QWidget {
    Q_OBJECT
public:
    struct Values {
        std::string file; ///< the source file's path
        bool isSelected = false;
        bool inMashup = false;
        bool mashupMode = false;
        std::string tempo; ///< "126.0 BPM · 1 bar", empty while unknown
        std::string facts; ///< "4.2 s · 16-bit stereo 44100 Hz", empty while unknown
        std::string refusal; ///< the reader's message for a file it refuses, else empty
        bool operator==(const Values&) const = default;
    };

    /// `onSelect` runs when the file name is clicked; `onMashupToggle` with
    /// the checkbox's new state when the user changes it.
    SourceFileRow(Values values, std::function<void()> onSelect, std::function<void(bool)> onMashupToggle,
                  QWidget* parent = nullptr);

    /// Shows `values` in place; the callbacks are kept. The file is the row's
    /// identity and is expected to stay the same.
    void setValues(const Values& values);
    const Values& values() const { return values_; }

    /// The row's controls, for tests.
    QAbstractButton* selectButton() const { return selectButton_; }
    QCheckBox* poolCheckBox() const { return poolCheckBox_; }

private:
    Values values_;
    std::function<void()> onSelect_;
    std::function<void(bool)> onMashupToggle_;
    QAbstractButton* selectButton_ = nullptr;
    QCheckBox* poolCheckBox_ = nullptr;
    QLabel* tempoLabel_ = nullptr;
    QWidget* captionLine_ = nullptr;
};

} // namespace marquetry::ui
