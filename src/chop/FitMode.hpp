#pragma once

#include <optional>
#include <string_view>

namespace marquetry::chop {

/// How a variation is brought to the reference loop's length, so that it
/// sits on a DAW's bar grid.
enum class FitMode {
    off,     ///< as long as its slices add up to
    trim,    ///< cut, or padded with silence
    stretch, ///< time-stretched with the pitch kept
};

/// "off", "trim", "stretch": the names the command line and the manifest use.
std::string_view fitModeName(FitMode mode);
std::optional<FitMode> parseFitMode(std::string_view name);

} // namespace marquetry::chop
