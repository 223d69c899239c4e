#include "ui/GeneratedLoopRow.hpp"

#include "ui/WaveformView.hpp"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace marquetry::ui {
namespace {

constexpr double iconDiameter = 30; // the icon of a 26-point symbol

} // namespace

GeneratedLoopRow::GeneratedLoopRow(const model::GeneratedLoop& loop, bool isPlaying,
                                   std::optional<double> playbackProgress, std::function<void(bool)> onToggle,
                                   std::function<void()> onPlayToggle, QWidget* parent)
    : QWidget(parent), id_(loop.id), isPlaying_(!isPlaying), onToggle_(std::move(onToggle)),
      onPlayToggle_(std::move(onPlayToggle)) {
    // The row, not its checkbox, takes the focus: Space and Return then
    // reach the row whichever part was clicked.
    setFocusPolicy(Qt::StrongFocus);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);

    auto* header = new QHBoxLayout;
    checkBox_ = new QCheckBox(QString::fromStdString(loop.name), this);
    checkBox_->setObjectName(QStringLiteral("loopExportCheckBox"));
    checkBox_->setFont(look::headlineFont(font()));
    checkBox_->setChecked(loop.isSelected);
    checkBox_->setFocusPolicy(Qt::NoFocus);
    header->addWidget(checkBox_);
    stateLabel_ = new QLabel(this);
    stateLabel_->setObjectName(QStringLiteral("loopStateLabel"));
    stateLabel_->setFont(look::captionFont(font()));
    header->addWidget(stateLabel_);
    header->addStretch(1);
    layout->addLayout(header);

    waveform_ = new WaveformView(this);
    waveform_->setObjectName(QStringLiteral("loopWaveform"));
    waveform_->setFixedHeight(60);
    waveform_->setColor(look::green());
    waveform_->setWaveform(std::span<const double>(loop.waveform));
    layout->addWidget(waveform_);

    // clicked(), unlike toggled(), comes from the user only.
    connect(checkBox_, &QCheckBox::clicked, this, [this](bool checked) { onToggle_(checked); });
    connect(waveform_, &WaveformView::clicked, this, [this] { onPlayToggle_(); });

    setPlayback(isPlaying, playbackProgress);
}

void GeneratedLoopRow::setLoopSelected(bool isSelected) {
    if (checkBox_->isChecked() == isSelected)
        return;
    const QSignalBlocker blocker(checkBox_);
    checkBox_->setChecked(isSelected);
}

void GeneratedLoopRow::setPlayback(bool isPlaying, std::optional<double> playbackProgress) {
    waveform_->setPlayheadProgress(isPlaying ? playbackProgress : std::nullopt);
    if (isPlaying == isPlaying_)
        return;
    isPlaying_ = isPlaying;
    stateLabel_->setText(isPlaying ? QStringLiteral("Looping") : QStringLiteral("Stopped"));
    QPalette labelPalette = stateLabel_->palette();
    labelPalette.setColor(QPalette::WindowText, isPlaying ? look::green() : look::secondary(palette()));
    stateLabel_->setPalette(labelPalette);
    waveform_->setPlaybackIcon(isPlaying ? PlaybackIcon::stop : PlaybackIcon::play, iconDiameter);
    update();
}

void GeneratedLoopRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = isPlaying_ ? look::green() : look::gray();
    fill.setAlphaF(isPlaying_ ? 0.14f : 0.06f);
    QPainterPath background;
    background.addRoundedRect(QRectF(rect()), 8, 8);
    painter.fillPath(background, fill);
    if (hasFocus()) {
        painter.setPen(QPen(look::accent(palette()), 2));
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 8, 8);
    }
}

void GeneratedLoopRow::keyPressEvent(QKeyEvent* event) {
    const bool plain = (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    if (plain && event->key() == Qt::Key_Space) {
        onPlayToggle_();
    } else if (plain && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)) {
        onToggle_(!checkBox_->isChecked());
    } else {
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void GeneratedLoopRow::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void GeneratedLoopRow::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    update();
}

} // namespace marquetry::ui
