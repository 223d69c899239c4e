#pragma once

#include <QImage>

#include <optional>

namespace marquetry::ui {

/// The product logo: the bundled resource, else Resources/logo.png one folder
/// above the executable's folder, else logo.png in the current directory.
/// None when no logo loads; callers then show the product name as text.
std::optional<QImage> appLogoImage();

} // namespace marquetry::ui
