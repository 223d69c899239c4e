#include "ui/VariationListPanel.hpp"

#include "ui/Controls.hpp"
#include "ui/GeneratedLoopRow.hpp"
#include "ui/WaveformView.hpp"

#include <QKeyEvent>
#include <QLabel>
#include <QVBoxLayout>

#include <algorithm>

namespace marquetry::ui {

using playback::PlaybackTarget;

VariationListPanel::VariationListPanel(std::function<void(const playback::Uuid&, bool)> onToggle,
                                       std::function<void(const playback::Uuid&)> onPlayToggle, QWidget* parent)
    : QScrollArea(parent), onToggle_(std::move(onToggle)), onPlayToggle_(std::move(onPlayToggle)) {
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* content = new QWidget(this);
    listLayout_ = new QVBoxLayout(content);
    listLayout_->setContentsMargins(0, 0, 8, 0);
    listLayout_->setSpacing(10);
    emptyLabel_ = new QLabel(QStringLiteral("No generated loops yet. Click Generate."), content);
    emptyLabel_->setObjectName(QStringLiteral("emptyLoopsLabel"));
    setTextColor(emptyLabel_, look::secondary(emptyLabel_->palette()));
    listLayout_->addWidget(emptyLabel_);
    listLayout_->addStretch(1);
    setWidget(content);
}

void VariationListPanel::setLoops(const std::vector<model::GeneratedLoop>& loops,
                                  const std::optional<PlaybackTarget>& playing, std::optional<double> progress) {
    const bool sameIds = std::equal(loops.begin(), loops.end(), rows_.begin(), rows_.end(),
                                    [](const model::GeneratedLoop& loop, const GeneratedLoopRow* row) {
                                        return row->loopId() == loop.id;
                                    });
    if (sameIds) {
        // A tick changed: nothing else of a variation changes in place.
        for (std::size_t i = 0; i < loops.size(); ++i)
            rows_[i]->setLoopSelected(loops[i].isSelected);
        return;
    }

    for (GeneratedLoopRow* row : rows_)
        retire(row);
    rows_.clear();
    emptyLabel_->setVisible(loops.empty());
    QWidget* list = listLayout_->parentWidget();
    for (const model::GeneratedLoop& loop : loops) {
        const playback::Uuid id = loop.id;
        auto* row = new GeneratedLoopRow(
            loop, playing == PlaybackTarget::generated(id), progress, [this, id](bool on) { onToggle_(id, on); },
            [this, id] { onPlayToggle_(id); }, list);
        row->setObjectName(QStringLiteral("generatedLoopRow"));
        connect(row->waveformView(), &WaveformView::dragStarted, row, [this, id] {
            if (onDrag_)
                onDrag_(id);
        });
        row->installEventFilter(this);
        // Before the trailing stretch.
        listLayout_->insertWidget(listLayout_->count() - 1, row);
        // The layout would show it only after the next event.
        row->show();
        rows_.push_back(row);
    }
}

void VariationListPanel::setPlayback(const std::optional<PlaybackTarget>& playing, std::optional<double> progress) {
    for (GeneratedLoopRow* row : rows_)
        row->setPlayback(playing == PlaybackTarget::generated(row->loopId()), progress);
}

void VariationListPanel::setPlayingProgress(const playback::Uuid& id, std::optional<double> progress) {
    const auto row = std::find_if(rows_.begin(), rows_.end(),
                                  [&id](const GeneratedLoopRow* candidate) { return candidate->loopId() == id; });
    if (row != rows_.end())
        (*row)->setPlayback(true, progress);
}

} // namespace marquetry::ui

namespace marquetry::ui {

void VariationListPanel::focusFirstRow() {
    if (rows_.empty())
        return;
    rows_.front()->setFocus(Qt::OtherFocusReason);
    ensureWidgetVisible(rows_.front());
}

bool VariationListPanel::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress)
        return QScrollArea::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    const auto row = std::find(rows_.begin(), rows_.end(), watched);
    if ((key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier || row == rows_.end())
        return QScrollArea::eventFilter(watched, event);
    // A page is as many whole rows as the area shows, at least one; rows
    // just made may not have their height yet.
    const int rowHeight = std::max((*row)->height(), (*row)->sizeHint().height()) + listLayout_->spacing();
    const std::ptrdiff_t page = std::max(1, viewport()->height() / std::max(1, rowHeight));
    const std::ptrdiff_t current = row - rows_.begin();
    const std::ptrdiff_t last = std::ssize(rows_) - 1;
    std::ptrdiff_t index = 0;
    switch (key->key()) {
    case Qt::Key_Up: index = current - 1; break;
    case Qt::Key_Down: index = current + 1; break;
    case Qt::Key_Home: index = 0; break;
    case Qt::Key_End: index = last; break;
    case Qt::Key_PageUp: index = std::max<std::ptrdiff_t>(current - page, 0); break;
    case Qt::Key_PageDown: index = std::min(current + page, last); break;
    default: return QScrollArea::eventFilter(watched, event);
    }
    if (index >= 0 && index <= last && index != current) {
        GeneratedLoopRow* next = rows_[static_cast<std::size_t>(index)];
        next->setFocus(index < current ? Qt::BacktabFocusReason : Qt::TabFocusReason);
        ensureWidgetVisible(next);
    }
    return true;
}

} // namespace marquetry::ui
