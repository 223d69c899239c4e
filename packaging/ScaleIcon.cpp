// Build-time helper: the application icon at one hicolor size, drawn from the
// logo so that the two can never disagree. The logo is wider than tall, so
// it is scaled to the icon's width and centred on a transparent square.
//   usage: marquetry_scale_icon LOGO.png SIZE OUT.png
#include <QImage>
#include <QPainter>
#include <QString>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: marquetry_scale_icon LOGO.png SIZE OUT.png\n", stderr);
        return 2;
    }
    const QImage logo(QString::fromLocal8Bit(argv[1]));
    const int size = std::atoi(argv[2]);
    if (logo.isNull() || size <= 0) {
        std::fprintf(stderr, "marquetry_scale_icon: cannot read %s or size %s\n", argv[1], argv[2]);
        return 1;
    }
    const QImage scaled = logo.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QImage icon(size, size, QImage::Format_ARGB32);
    icon.fill(Qt::transparent);
    {
        QPainter painter(&icon);
        painter.drawImage((size - scaled.width()) / 2, (size - scaled.height()) / 2, scaled);
    }
    if (!icon.save(QString::fromLocal8Bit(argv[3]), "PNG")) {
        std::fprintf(stderr, "marquetry_scale_icon: cannot write %s\n", argv[3]);
        return 1;
    }
    return 0;
}
