#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace marquetry::model {

/// Paths travel through the model as UTF-8 text; these convert at the
/// boundary to the file system, whatever the platform's native encoding.
std::filesystem::path pathFromText(const std::string& text);
std::string pathText(const std::filesystem::path& path);

/// The last component of a path written with '/' (or '\\' on Windows).
std::string fileName(const std::string& path);

/// `folder` and an entry name joined as std::filesystem::path's "/" joins
/// them, without building paths: a scan joins every entry of a folder.
std::string joinPath(const std::string& folder, const std::string& name);

/// Whether the text after the last dot of `name` is "wav" in any letter case.
bool hasWavExtension(const std::string& name);

/// `path` with a leading "~" component replaced by `homeFolder`; any other
/// text ("~user", "a/~") comes back unchanged.
std::string expandTilde(const std::string& path, const std::string& homeFolder);

/// The names of the entries of one folder level, hidden ones included, in
/// the order the system lists them. Throws std::system_error when the folder
/// cannot be listed.
std::vector<std::string> listFolder(const std::string& folder);

/// Creates `folder` with any missing parents; an existing folder is fine.
/// Throws std::system_error with the operating system's description.
void createFolder(const std::string& folder);

/// Replaces the file at `path` whole with `bytes`: they go to a temporary file
/// in the same folder, which is flushed to disk and renamed over the target,
/// so a failure leaves neither a partial file nor a damaged old one. Where the
/// file system can, the temporary has no name until its data is on disk, so
/// a writer killed half way leaves nothing behind; elsewhere it is a hidden
/// file of a fixed short name that `removeStaleTemporaries` recognises. Any
/// target name the file system accepts can be written. Throws
/// std::system_error with the operating system's description.
void writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes);

/// The same for a file that must not replace anything: returns false, and
/// leaves the folder as it was, when `path` already exists (even if it
/// appeared while the bytes were being written). Throws std::system_error
/// with the operating system's description for every other failure.
bool writeNewFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes);

/// Writes `bytes` into `folder` under the first free name of stem + extension,
/// stem + "-2" + extension, stem + "-3" + extension, ...; a name taken while
/// the bytes were being written moves on to the next, so nothing that exists
/// is ever replaced. Returns the path written. Throws std::system_error with
/// the path and the operating system's description.
std::string writeUnderFreeName(const std::string& folder, const std::string& stem, const std::string& extension,
                               std::span<const std::uint8_t> bytes);
/// The same with the extension taken from `name` (from its last dot).
std::string writeUnderFreeName(const std::string& folder, const std::string& name, std::span<const std::uint8_t> bytes);

/// The n-th name Keep both tries for `name` (n from 1): the name itself,
/// then the name with "-2", "-3", ... before its extension.
std::string numberedName(const std::string& name, std::uint64_t n);

/// The first half of a write that is published later, with others: writes
/// `bytes` to a new hidden temporary in the folder of `path`, flushed to
/// disk, and returns the temporary's path. Throws std::system_error naming
/// `path`, having removed the temporary. `removeStaleTemporaries`
/// recognises it when its writer dies before publishing it.
std::string writeTemporaryFor(const std::string& path, std::span<const std::uint8_t> bytes);

/// Gives the temporary `temporary` the name `path`, replacing what is there.
/// Throws std::system_error naming `path`.
void publishReplacing(const std::string& temporary, const std::string& path);

/// Gives the temporary `temporary` the name `path` unless that name is
/// taken: false (and the temporary kept) when it is. Throws
/// std::system_error naming `path` for every other failure.
bool publishWithoutReplacing(const std::string& temporary, const std::string& path);

/// A new hidden name in the same folder for the file at `path`, as
/// publishReplacing's temporaries are named, so that a file about to be
/// replaced can still be put back; none when nothing is at `path`. Throws
/// std::system_error naming `path` when the link cannot be made.
std::optional<std::string> linkTemporaryTo(const std::string& path);

/// Whether `a` and `b` name one existing file (the same device and inode),
/// through links and different spellings alike.
bool sameFile(const std::string& a, const std::string& b);

/// Removes the files in `folder` that have not changed for `age`; anything
/// else, and a folder that cannot be listed, is left alone.
void removeOldFiles(const std::string& folder, std::chrono::seconds age);

/// Removes the temporaries that `writeFileAtomically` left in `folder` when
/// its process was killed: only files of its own name pattern whose writer is
/// gone and that have not changed for a minute, or that have not changed for
/// a day. Anything else stays; a folder that cannot be listed is left alone.
void removeStaleTemporaries(const std::string& folder);

} // namespace marquetry::model
