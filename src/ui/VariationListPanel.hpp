#pragma once

#include "model/GeneratedLoop.hpp"
#include "playback/PlaybackTarget.hpp"

#include <QScrollArea>

#include <functional>
#include <optional>
#include <vector>

class QLabel;
class QVBoxLayout;

namespace marquetry::ui {

class GeneratedLoopRow;

/// The scrolling list of generated variations: one GeneratedLoopRow per
/// variation, or a hint while there is none. Holds no state beyond what it
/// was last given; every action goes out through a callback. Main thread
/// only.
class VariationListPanel final : public QScrollArea {
    Q_OBJECT
public:
    /// `onToggle` runs with a variation's id and the new state of its tick
    /// when the user changes it; `onPlayToggle` with the id of the variation
    /// whose waveform was clicked.
    VariationListPanel(std::function<void(const playback::Uuid&, bool)> onToggle,
                       std::function<void(const playback::Uuid&)> onPlayToggle, QWidget* parent = nullptr);

    /// Shows `loops`. The rows are rebuilt only when the ids differ from the
    /// ones shown; otherwise only the ticks change, in place. New rows show
    /// `playing` and `progress` as setPlayback() does.
    void setLoops(const std::vector<model::GeneratedLoop>& loops,
                  const std::optional<playback::PlaybackTarget>& playing, std::optional<double> progress);

    /// Shows the row of the variation `playing` as looping, with its playhead
    /// at `progress`, and every other row as stopped.
    void setPlayback(const std::optional<playback::PlaybackTarget>& playing, std::optional<double> progress);

    /// Moves the playhead of the playing variation `id` to `progress`,
    /// touching no other row; for the ticks of a playing preview.
    void setPlayingProgress(const playback::Uuid& id, std::optional<double> progress);

    /// `onDrag` runs with the id of a variation whose waveform the user
    /// starts to drag; none is set at first.
    void setOnDrag(std::function<void(const playback::Uuid&)> onDrag) { onDrag_ = std::move(onDrag); }

    /// Gives the keyboard focus to the first row and scrolls it into view;
    /// nothing when there is no row.
    void focusFirstRow();

protected:
    /// Up and Down on a row move the focus to the row above or below, Home
    /// and End to the first or last, Page Up and Page Down a page of rows.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::function<void(const playback::Uuid&, bool)> onToggle_;
    std::function<void(const playback::Uuid&)> onPlayToggle_;
    std::function<void(const playback::Uuid&)> onDrag_;
    QVBoxLayout* listLayout_ = nullptr;
    QLabel* emptyLabel_ = nullptr;
    // The rows on screen, in list order.
    std::vector<GeneratedLoopRow*> rows_;
};

} // namespace marquetry::ui
