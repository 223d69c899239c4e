#include "ui/Controls.hpp"

#include "ui/WaveformView.hpp"

#include <QDropEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>

#include <algorithm>
#include <cmath>

namespace marquetry::ui {
namespace {

class StatusLine final : public QLabel {
public:
    explicit StatusLine(QWidget* parent) : QLabel(parent) {
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(rect(), Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                         fontMetrics().elidedText(text(), Qt::ElideRight, width()));
    }
};

/// The paths of the files `data` carries, or none unless it carries only
/// local files.
std::vector<std::string> localFiles(const QMimeData* data) {
    std::vector<std::string> files;
    if (data == nullptr || !data->hasUrls())
        return files;
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile())
            return {};
        files.push_back(url.toLocalFile().toStdString());
    }
    return files;
}

class FileDropFilter final : public QObject {
public:
    FileDropFilter(QWidget* target, std::function<void(const std::vector<std::string>&)> onDrop)
        : QObject(target), onDrop_(std::move(onDrop)) {
        target->setAcceptDrops(true);
        target->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        const QEvent::Type type = event->type();
        if (type != QEvent::DragEnter && type != QEvent::DragMove && type != QEvent::Drop)
            return QObject::eventFilter(watched, event);
        auto* drop = static_cast<QDropEvent*>(event);
        const std::vector<std::string> files = localFiles(drop->mimeData());
        // Always a copy: a file manager deletes what it sees moved.
        if (files.empty() || !drop->possibleActions().testFlag(Qt::CopyAction)) {
            drop->ignore();
            return true;
        }
        drop->setDropAction(Qt::CopyAction);
        drop->accept();
        if (type == QEvent::Drop)
            onDrop_(files);
        return true;
    }

private:
    std::function<void(const std::vector<std::string>&)> onDrop_;
};

QString percentText(double value) {
    return QString::number(static_cast<long long>(std::trunc(value * 100))) + QLatin1Char('%');
}

} // namespace

void setTextColor(QWidget* widget, const QColor& color) {
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

QHBoxLayout* rowLayout(QWidget* row, int spacing) {
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    if (spacing >= 0)
        layout->setSpacing(spacing);
    return layout;
}

QPushButton* button(const QString& text, const char* name, QWidget* parent) {
    auto* result = new QPushButton(text, parent);
    result->setObjectName(QLatin1String(name));
    return result;
}

QLabel* heading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setFont(look::headlineFont(parent->font()));
    return label;
}

QLabel* secondaryCaption(const QString& text, const char* name, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setObjectName(QLatin1String(name));
    label->setFont(look::captionFont(parent->font()));
    setTextColor(label, look::secondary(label->palette()));
    return label;
}

QLabel* statusLine(QWidget* parent) {
    auto* line = new StatusLine(parent);
    setTextColor(line, look::secondary(line->palette()));
    return line;
}

void acceptFileDrops(QWidget* target, std::function<void(const std::vector<std::string>& files)> onDrop) {
    new FileDropFilter(target, std::move(onDrop));
}

QSlider* addFader(QHBoxLayout* row, QLabel*& valueLabel, const char* name, QWidget* parent) {
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(QLatin1String(name));
    slider->setRange(0, sliderSteps);
    slider->setSingleStep(10);
    slider->setPageStep(100);
    slider->setMinimumWidth(260);
    row->addWidget(slider);

    valueLabel = new QLabel(parent);
    valueLabel->setObjectName(QLatin1String(name) + QLatin1String("Value"));
    valueLabel->setFont(look::tabularCaptionFont(parent->font()));
    valueLabel->setFixedWidth(46);
    valueLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    row->addWidget(valueLabel);
    return slider;
}

void syncText(QLineEdit* field, const std::string& value) {
    const QString text = QString::fromStdString(value);
    if (field->text() == text)
        return;
    const QSignalBlocker blocker(field);
    field->setText(text);
}

void syncSpinBox(QSpinBox* box, std::int64_t value) {
    const QSignalBlocker blocker(box);
    box->setValue(static_cast<int>(std::clamp<std::int64_t>(value, box->minimum(), box->maximum())));
}

void syncSlider(QSlider* slider, QLabel* valueLabel, double value) {
    {
        const QSignalBlocker blocker(slider);
        slider->setValue(static_cast<int>(std::lround(std::clamp(value, 0.0, 1.0) * sliderSteps)));
    }
    valueLabel->setText(percentText(value));
}

void retire(QWidget* widget) {
    widget->hide();
    if (QWidget* parent = widget->parentWidget(); parent && parent->layout())
        parent->layout()->removeWidget(widget);
    widget->deleteLater();
}

} // namespace marquetry::ui
