#pragma once

#include "model/GeneratedLoop.hpp"

#include <QWidget>

#include <functional>
#include <optional>

class QCheckBox;
class QLabel;

namespace marquetry::ui {

class WaveformView;

/// One generated variation: its export checkbox with the loop's name, a
/// "Looping"/"Stopped" caption, and its waveform, which toggles playback when
/// clicked. With the keyboard focus, Space does what a click on the waveform
/// does and Return flips the tick. Holds no state beyond what it was last
/// given; every action goes out through a callback. Main thread only.
class GeneratedLoopRow final : public QWidget {
    Q_OBJECT
public:
    /// `onToggle` runs with the checkbox's new state when the user changes
    /// it; `onPlayToggle` on a click anywhere on the waveform.
    GeneratedLoopRow(const model::GeneratedLoop& loop, bool isPlaying, std::optional<double> playbackProgress,
                     std::function<void(bool)> onToggle, std::function<void()> onPlayToggle,
                     QWidget* parent = nullptr);

    const playback::Uuid& loopId() const { return id_; }

    /// The loop's export tick, shown in place.
    void setLoopSelected(bool isSelected);
    /// Whether this row's loop is the one playing, and the model's progress,
    /// which the row shows only while playing. Repaints only what changed.
    void setPlayback(bool isPlaying, std::optional<double> playbackProgress);

    /// The row's parts, for tests.
    QCheckBox* checkBox() const { return checkBox_; }
    QLabel* stateLabel() const { return stateLabel_; }
    WaveformView* waveformView() const { return waveform_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    playback::Uuid id_;
    bool isPlaying_ = false;
    std::function<void(bool)> onToggle_;
    std::function<void()> onPlayToggle_;
    QCheckBox* checkBox_ = nullptr;
    QLabel* stateLabel_ = nullptr;
    WaveformView* waveform_ = nullptr;
};

} // namespace marquetry::ui
