#pragma once

#include <QColor>
#include <QFont>
#include <QPixmap>
#include <QWidget>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

class QPainter;

namespace marquetry::ui {

/// The named colours and fonts the window's views share. Main thread only.
namespace look {
QColor gray();
QColor green();
QColor blue();
QColor white();
/// The dimmed text colour of `palette` (its placeholder text colour).
QColor secondary(const QPalette& palette);
/// The selection colour of `palette`.
QColor accent(const QPalette& palette);
QFont headlineFont(const QFont& base);
QFont captionFont(const QFont& base);
/// A caption-sized font whose digits all have the same width.
QFont tabularCaptionFont(const QFont& base);
} // namespace look

/// Which playback icon sits centred over a waveform.
enum class PlaybackIcon { none, play, stop };

/// Draws the filled circle with a play triangle (or stop square) knocked out
/// of it, `diameter` across and centred on `centre`, white at 85% over a soft
/// dark shadow.
void paintPlaybackIcon(QPainter& painter, QPointF centre, double diameter, PlaybackIcon icon);

/// A display envelope drawn as a mirrored outline over a rounded background,
/// with an optional playhead and an optional playback icon. It takes the size
/// its parent gives it; the whole rectangle takes the click. Main thread only.
class WaveformView final : public QWidget {
    Q_OBJECT
public:
    explicit WaveformView(QWidget* parent = nullptr);

    /// Envelope points, left to right, each expected in 0 to 1; not clamped.
    void setWaveform(std::span<const double> points);

    /// The colour of the envelope's body.
    void setColor(const QColor& color);

    /// Fraction of the width; none hides the playhead. Drawn clamped to 0..1.
    void setPlayheadProgress(std::optional<double> progress);
    std::optional<double> playheadProgress() const { return playheadProgress_; }

    /// The icon drawn centred over the waveform, `diameter` points across.
    void setPlaybackIcon(PlaybackIcon icon, double diameter = 28);

    ~WaveformView() override;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    /// A single left click anywhere inside the view.
    void clicked();
    /// The left button was pressed inside the view and moved further than
    /// QApplication::startDragDistance(): a drag, so no click follows.
    void dragStarted();

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    // A view that takes the focus (the source waveform) shows it with a ring.
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    /// Background, body and centre line, which change only with the points,
    /// the colours and the size, drawn at the screen's pixel density.
    QPixmap staticLayers();
    void paintStaticLayers(QPainter& painter) const;
    void dropStaticLayers();

    std::vector<float> waveform_;
    QColor color_;
    std::optional<double> playheadProgress_;
    PlaybackIcon icon_ = PlaybackIcon::none;
    double iconDiameter_ = 28;
    bool pressed_ = false;
    QPoint pressedAt_;

    // Filling a thousand-point outline costs milliseconds, and the playing
    // row repaints 33 times a second, so the static layers are kept as a
    // picture in a cache shared by all views, keyed by this view's serial.
    std::uint64_t serial_;
    QSize cachedSize_;
    qreal cachedRatio_ = 0;
};

} // namespace marquetry::ui
