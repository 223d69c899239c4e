#pragma once

#include <QImage>
#include <QString>

#include <optional>

namespace marquetry::ui {

/// The product logo: the bundled resource, else Resources/logo.png one folder
/// above the executable's folder, else logo.png in the current directory.
/// None when no logo loads; callers then show the product name as text.
/// Main thread only (it may register the compiled-in resources).
std::optional<QImage> appLogoImage();

/// Where appLogoImage() looks, in the order it looks there.
struct LogoPlaces {
    /// A Qt resource path, such as ":/logo.png".
    QString resource;
    /// The folder holding the executable; empty when it is not known.
    QString executableFolder;
    /// The process's current directory.
    QString currentFolder;
};

/// The first image of `places` that loads, or none.
std::optional<QImage> findLogo(const LogoPlaces& places);

} // namespace marquetry::ui
