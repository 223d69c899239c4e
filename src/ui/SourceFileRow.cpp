#include "ui/SourceFileRow.hpp"

#include "model/FileSystem.hpp"
#include "ui/WaveformView.hpp"

#include <QAbstractButton>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>

namespace marquetry::ui {
namespace {

constexpr int markSpacing = 8;
// A refused file's note: a warning, not an error the user caused.
const QColor refusalColor(196, 64, 48);

/// A borderless button that shows a radio-style mark and a file name,
/// elided when the list is narrower than the name.
class FileNameButton final : public QAbstractButton {
public:
    explicit FileNameButton(QWidget* parent) : QAbstractButton(parent) {
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::TabFocus);
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    }

    void setSelectedMark(bool selected) {
        if (selected == selected_)
            return;
        selected_ = selected;
        update();
    }

    QSize sizeHint() const override {
        // One pixel of slack: the advance is rounded, and a name that fits
        // must not come out elided.
        return {markSize() + markSpacing + fontMetrics().horizontalAdvance(text()) + 1 + 2 * padding, rowHeight()};
    }
    QSize minimumSizeHint() const override {
        return {markSize() + markSpacing + fontMetrics().horizontalAdvance(QStringLiteral("M…")) + 2 * padding,
                rowHeight()};
    }

    /// Where the file name starts, from the button's left edge.
    int textLeft() const { return padding + markSize() + markSpacing; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (underMouse() || hasFocus()) {
            QColor hover = look::gray();
            hover.setAlphaF(0.14f);
            painter.setPen(Qt::NoPen);
            painter.setBrush(hover);
            painter.drawRoundedRect(QRectF(rect()), 5, 5);
        }

        const double size = markSize();
        const QRectF mark(padding, (height() - size) / 2.0, size, size);
        if (selected_) {
            const QColor accent = look::accent(palette());
            painter.setPen(QPen(accent, 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(mark.adjusted(0.75, 0.75, -0.75, -0.75));
            painter.setPen(Qt::NoPen);
            painter.setBrush(accent);
            const double inset = size * 0.26;
            painter.drawEllipse(mark.adjusted(inset, inset, -inset, -inset));
        } else {
            painter.setPen(QPen(look::secondary(palette()), 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(mark.adjusted(0.75, 0.75, -0.75, -0.75));
        }

        const int textLeft = padding + markSize() + markSpacing;
        const QRect textRect(textLeft, 0, width() - textLeft - padding, height());
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                         fontMetrics().elidedText(text(), Qt::ElideMiddle, textRect.width()));
    }

private:
    static constexpr int padding = 4;
    int markSize() const { return fontMetrics().height(); }
    int rowHeight() const { return fontMetrics().height() + 8; }

    bool selected_ = false;
};

/// The small print under a file name, elided to the row's width. It is
/// there while still empty, so rows do not jump when their facts arrive; a
/// click on it selects, as one on the name does.
class CaptionLine final : public QWidget {
public:
    CaptionLine(QAbstractButton* select, QWidget* parent) : QWidget(parent), select_(select) {
        setFont(look::captionFont(font()));
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        setCursor(Qt::PointingHandCursor);
    }

    void setCaption(const QString& caption, bool refused) {
        caption_ = caption;
        refused_ = refused;
        update();
    }

    QSize sizeHint() const override { return {0, fontMetrics().height() + contentsMargins().top()}; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        const QRect area = contentsRect();
        painter.setPen(refused_ ? refusalColor : look::secondary(palette()));
        painter.drawText(area, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                         fontMetrics().elidedText(caption_, Qt::ElideRight, area.width()));
    }
    void mouseReleaseEvent(QMouseEvent* event) override {
        if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
            select_->click();
    }

private:
    QAbstractButton* select_;
    QString caption_;
    bool refused_ = false;
};

} // namespace

SourceFileRow::SourceFileRow(Values values, std::function<void()> onSelect, std::function<void(bool)> onMashupToggle,
                             QWidget* parent)
    : QWidget(parent), onSelect_(std::move(onSelect)), onMashupToggle_(std::move(onMashupToggle)) {
    // The file's line, then its facts under the name.
    auto* lines = new QVBoxLayout(this);
    lines->setSpacing(0);
    lines->setContentsMargins(0, 2, 0, 2);
    auto* layout = new QHBoxLayout;
    layout->setSpacing(8);
    lines->addLayout(layout);

    auto* button = new FileNameButton(this);
    button->setObjectName(QStringLiteral("sourceFileSelect"));
    button->setText(QString::fromStdString(model::fileName(values.file)));
    selectButton_ = button;
    layout->addWidget(button, 0, Qt::AlignVCenter);
    tempoLabel_ = new QLabel(this);
    tempoLabel_->setObjectName(QStringLiteral("sourceFileTempo"));
    tempoLabel_->setFont(look::captionFont(font()));
    tempoLabel_->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(tempoLabel_, 0, Qt::AlignVCenter);
    layout->addStretch(1);

    poolCheckBox_ = new QCheckBox(this);
    poolCheckBox_->setObjectName(QStringLiteral("sourceFilePool"));
    layout->addWidget(poolCheckBox_, 0, Qt::AlignVCenter);

    // clicked(), unlike toggled(), comes from the user only.
    auto* caption = new CaptionLine(button, this);
    caption->setObjectName(QStringLiteral("sourceFileFacts"));
    caption->setContentsMargins(button->textLeft(), 0, 0, 0);
    captionLine_ = caption;
    lines->addWidget(caption);

    connect(button, &QAbstractButton::clicked, this, [this] { onSelect_(); });
    connect(poolCheckBox_, &QCheckBox::clicked, this, [this](bool checked) { onMashupToggle_(checked); });

    values_ = values;
    // Force the first draw of every part.
    values_.isSelected = !values.isSelected;
    values_.mashupMode = !values.mashupMode;
    values_.refusal = values.refusal.empty() ? std::string(1, ' ') : std::string();
    setValues(values);
}

void SourceFileRow::setValues(const Values& values) {
    if (values.isSelected != values_.isSelected)
        static_cast<FileNameButton*>(selectButton_)->setSelectedMark(values.isSelected);
    if (values.mashupMode != values_.mashupMode)
        poolCheckBox_->setVisible(values.mashupMode);
    if (values.inMashup != poolCheckBox_->isChecked()) {
        const QSignalBlocker blocker(poolCheckBox_);
        poolCheckBox_->setChecked(values.inMashup);
    }
    if (values.facts != values_.facts || values.refusal != values_.refusal) {
        const bool refused = !values.refusal.empty();
        const QString refusal = QString::fromStdString(values.refusal);
        const QString caption = refused ? QStringLiteral("\u26a0 ") + refusal : QString::fromStdString(values.facts);
        static_cast<CaptionLine*>(captionLine_)->setCaption(caption, refused);
        selectButton_->setAccessibleDescription(caption);
        // The reader's own words where the pointer rests, on either line.
        const QString tip = refused ? refusal : QString::fromStdString(values.file);
        selectButton_->setToolTip(tip);
        captionLine_->setToolTip(tip);
    }
    if (values.tempo != values_.tempo || tempoLabel_->text().isEmpty() != values.tempo.empty())
        tempoLabel_->setText(QString::fromStdString(values.tempo));
    values_ = values;
}

} // namespace marquetry::ui
