#include "ui/WaveformView.hpp"

#include <QCache>
#include <QFontDatabase>
#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <memory>

namespace marquetry::ui {

namespace look {

QColor gray() { return {142, 142, 147}; }
QColor green() { return {52, 199, 89}; }
QColor blue() { return {0, 122, 255}; }
QColor white() { return {255, 255, 255}; }

QColor secondary(const QPalette& palette) { return palette.color(QPalette::PlaceholderText); }
QColor accent(const QPalette& palette) { return palette.color(QPalette::Highlight); }

QFont headlineFont(const QFont& base) {
    QFont font = base;
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(base.pointSizeF() * 1.1);
    return font;
}

QFont captionFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(std::max(7.0, base.pointSizeF() * 0.88));
    return font;
}

QFont tabularCaptionFont(const QFont& base) {
    // Qt 6.4 cannot ask a proportional font for its tabular figures, and not
    // every desktop's sans font has them by default: a fixed-pitch font does.
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(captionFont(base).pointSizeF());
    return font;
}

} // namespace look

namespace {

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(static_cast<float>(color.alphaF() * alpha));
    return color;
}

QPainterPath iconPath(QPointF centre, double diameter, PlaybackIcon icon) {
    const double r = diameter / 2;
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    path.addEllipse(centre, r, r);
    if (icon == PlaybackIcon::play) {
        // Nudged right so the triangle looks centred to the eye.
        QPolygonF triangle;
        triangle << centre + QPointF(-0.28 * r, -0.40 * r) << centre + QPointF(-0.28 * r, 0.40 * r)
                 << centre + QPointF(0.46 * r, 0);
        path.addPolygon(triangle);
        path.closeSubpath();
    } else {
        const double half = 0.34 * r;
        path.addRoundedRect(QRectF(centre.x() - half, centre.y() - half, 2 * half, 2 * half), 0.12 * r, 0.12 * r);
    }
    return path;
}

} // namespace

void paintPlaybackIcon(QPainter& painter, QPointF centre, double diameter, PlaybackIcon icon) {
    if (icon == PlaybackIcon::none)
        return;
    const QPainterPath path = iconPath(centre, diameter, icon);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // A blurred shadow of radius 2 approximated by two widening halos.
    painter.setBrush(Qt::NoBrush);
    for (const double width : {4.0, 2.0}) {
        painter.setPen(QPen(withAlpha(Qt::black, 0.33 * 0.4), width));
        painter.drawPath(path);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(withAlpha(look::white(), 0.85));
    painter.drawPath(path);
    painter.restore();
}

namespace {

constexpr int cacheKilobytes = 64 * 1024;

/// Keyed by view serial; cost in kilobytes. Main thread only, like the views.
QCache<std::uint64_t, QPixmap>& layerCache() {
    static QCache<std::uint64_t, QPixmap> cache(cacheKilobytes);
    return cache;
}

std::uint64_t nextSerial() {
    static std::uint64_t serial = 0;
    return ++serial;
}

} // namespace

WaveformView::WaveformView(QWidget* parent) : QWidget(parent), color_(look::blue()), serial_(nextSerial()) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    setCursor(Qt::PointingHandCursor);
}

WaveformView::~WaveformView() { dropStaticLayers(); }

void WaveformView::setWaveform(std::span<const double> points) {
    waveform_.resize(points.size());
    std::transform(points.begin(), points.end(), waveform_.begin(),
                   [](double value) { return static_cast<float>(value); });
    dropStaticLayers();
    update();
}

void WaveformView::setColor(const QColor& color) {
    if (color == color_)
        return;
    color_ = color;
    dropStaticLayers();
    update();
}

void WaveformView::setPlayheadProgress(std::optional<double> progress) {
    if (progress == playheadProgress_)
        return;
    playheadProgress_ = progress;
    update();
}

void WaveformView::setPlaybackIcon(PlaybackIcon icon, double diameter) {
    if (icon == icon_ && diameter == iconDiameter_)
        return;
    icon_ = icon;
    iconDiameter_ = diameter;
    update();
}

QSize WaveformView::sizeHint() const { return {240, 60}; }
QSize WaveformView::minimumSizeHint() const { return {40, 20}; }

void WaveformView::dropStaticLayers() { layerCache().remove(serial_); }

void WaveformView::paintStaticLayers(QPainter& painter) const {
    const double w = std::max(width(), 1);
    const double h = height();
    const double mid = h / 2.0;

    QPainterPath background;
    background.addRoundedRect(QRectF(0, 0, w, h), 8, 8);
    painter.fillPath(background, withAlpha(look::gray(), 0.08));

    if (const std::size_t n = waveform_.size(); n > 0) {
        const double amp = mid - 2;
        const double step = w / static_cast<double>(std::max<std::size_t>(n, 2) - 1);
        QPainterPath body;
        body.moveTo(0, mid);
        for (std::size_t i = 0; i < n; ++i)
            body.lineTo(static_cast<double>(i) * step, mid - amp * waveform_[i]);
        for (std::size_t i = n; i-- > 0;)
            body.lineTo(static_cast<double>(i) * step, mid + amp * waveform_[i]);
        body.closeSubpath();
        painter.fillPath(body, withAlpha(color_, 0.45));
    }

    painter.setPen(QPen(withAlpha(look::secondary(palette()), 0.25), 1));
    painter.drawLine(QPointF(0, mid), QPointF(w, mid));
}

QPixmap WaveformView::staticLayers() {
    const qreal ratio = devicePixelRatioF();
    if (cachedSize_ == size() && cachedRatio_ == ratio)
        if (const QPixmap* cached = layerCache().object(serial_))
            return *cached;

    auto pixmap = std::make_unique<QPixmap>(size() * ratio);
    pixmap->setDevicePixelRatio(ratio);
    pixmap->fill(Qt::transparent);
    {
        QPainter painter(pixmap.get());
        painter.setRenderHint(QPainter::Antialiasing);
        paintStaticLayers(painter);
    }
    QPixmap result = *pixmap;
    const qint64 kilobytes = std::max<qint64>(1, qint64{pixmap->width()} * pixmap->height() * 4 / 1024);
    layerCache().insert(serial_, pixmap.release(), kilobytes);
    cachedSize_ = size();
    cachedRatio_ = ratio;
    return result;
}

void WaveformView::paintEvent(QPaintEvent*) {
    if (width() <= 0 || height() <= 0)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.drawPixmap(0, 0, staticLayers());

    const double w = std::max(width(), 1);
    const double h = height();
    if (playheadProgress_) {
        const double x = std::clamp(*playheadProgress_, 0.0, 1.0) * w;
        // Shadow of radius 1: two soft strokes under the line.
        for (const double width : {4.0, 3.0}) {
            painter.setPen(QPen(withAlpha(Qt::black, 0.35 * 0.5), width, Qt::SolidLine, Qt::FlatCap));
            painter.drawLine(QPointF(x, 0), QPointF(x, h));
        }
        painter.setPen(QPen(withAlpha(look::white(), 0.9), 2, Qt::SolidLine, Qt::FlatCap));
        painter.drawLine(QPointF(x, 0), QPointF(x, h));
    }

    paintPlaybackIcon(painter, QPointF(w / 2, h / 2), iconDiameter_, icon_);

    if (hasFocus()) {
        painter.setPen(QPen(look::accent(palette()), 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 8, 8);
    }
}

void WaveformView::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void WaveformView::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    update();
}

void WaveformView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        dropStaticLayers();
    QWidget::changeEvent(event);
}

void WaveformView::mousePressEvent(QMouseEvent* event) {
    pressed_ = event->button() == Qt::LeftButton;
    pressedAt_ = event->position().toPoint();
    event->accept();
}

void WaveformView::mouseMoveEvent(QMouseEvent* event) {
    event->accept();
    if (!pressed_ || !(event->buttons() & Qt::LeftButton)
        || (event->position().toPoint() - pressedAt_).manhattanLength() < QApplication::startDragDistance())
        return;
    pressed_ = false;
    emit dragStarted();
}

void WaveformView::mouseReleaseEvent(QMouseEvent* event) {
    const bool click = pressed_ && event->button() == Qt::LeftButton && rect().contains(event->position().toPoint());
    pressed_ = false;
    event->accept();
    if (click)
        emit clicked();
}

} // namespace marquetry::ui
