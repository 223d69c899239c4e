#include "ui/AppLogo.hpp"

#include <QCoreApplication>
#include <QDir>

// The resources live in a static library, whose registration code the linker
// drops unless something refers to it; Q_INIT_RESOURCE is that reference and
// must be spelled outside any namespace.
static void registerMarquetryResources() {
    Q_INIT_RESOURCE(resources);
}

namespace marquetry::ui {

namespace {

std::optional<QImage> loaded(const QString& path) {
    if (path.isEmpty())
        return std::nullopt;
    QImage image(path);
    if (image.isNull())
        return std::nullopt;
    return image;
}

} // namespace

std::optional<QImage> findLogo(const LogoPlaces& places) {
    if (auto image = loaded(places.resource))
        return image;
    // A plain executable sits in bin/ (or the build's src/ui/) beside a
    // Resources folder one level up, the layout an installed tree shares.
    if (!places.executableFolder.isEmpty())
        if (auto image = loaded(QDir(places.executableFolder).filePath(QStringLiteral("../Resources/logo.png"))))
            return image;
    if (!places.currentFolder.isEmpty())
        return loaded(QDir(places.currentFolder).filePath(QStringLiteral("logo.png")));
    return std::nullopt;
}

std::optional<QImage> appLogoImage() {
    static const bool registered = (registerMarquetryResources(), true);
    (void)registered;
    // applicationDirPath() warns and answers nothing without an application.
    const QString executableFolder =
        QCoreApplication::instance() != nullptr ? QCoreApplication::applicationDirPath() : QString();
    return findLogo({QStringLiteral(":/logo.png"), executableFolder, QDir::currentPath()});
}

} // namespace marquetry::ui
