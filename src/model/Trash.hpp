#pragma once

#include <optional>
#include <string>

namespace marquetry::model {

/// Where a file went when it was moved to the trash, or why it stayed.
struct TrashOutcome {
    std::optional<std::string> trashedPath; ///< its new path in the trash's files folder, when it went
    std::string failure;                    ///< one sentence on why it stayed, otherwise

    explicit operator bool() const { return trashedPath.has_value(); }
};

/// Moves the file at `path` into the user's home trash as the freedesktop.org
/// trash specification lays it out: $XDG_DATA_HOME/Trash (or
/// ~/.local/share/Trash when that is unset or not absolute), the file in
/// `files/` under its own name or, when that is taken, "STEM-2.EXT",
/// "STEM-3.EXT", ..., and beside it `info/NAME.trashinfo` with its original
/// path and the deletion time, so a file manager can restore it. Missing
/// trash folders are created, readable by the user alone. A file on another
/// file system than the home trash is refused rather than copied, as is
/// anything but a regular file; nothing is changed then. Never throws. Any
/// thread, but one move of the same name at a time. With `originalPath`,
/// the file at `path` is trashed as the one that was at `originalPath`
/// (under its name, to be restored there): a file that has just been
/// replaced, kept until then under a hidden link beside its new version.
TrashOutcome moveToTrash(const std::string& path, const std::string& originalPath = {});

} // namespace marquetry::model
