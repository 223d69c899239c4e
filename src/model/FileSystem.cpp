#include "model/FileSystem.hpp"

#include "model/ErrorText.hpp"
#include "model/SystemServices.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>
#include <system_error>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace marquetry::model {
namespace fs = std::filesystem;

namespace {

[[noreturn]] void throwError(std::error_code error, const std::string& path) {
    throw std::system_error(error, path);
}

[[noreturn]] void throwErrno(const std::string& path) {
    throwError(std::error_code(errno, std::generic_category()), path);
}

bool isSeparator(char c) {
#if defined(_WIN32)
    return c == '/' || c == '\\';
#else
    return c == '/';
#endif
}

// Temporaries are named ".mqtry-" + the writer's process id (8 hex digits)
// + 8 random hex digits + ".tmp": hidden, recognisably ours, and short and
// fixed in length, so that any name the file system accepts for the target
// still leaves room for its temporary.
constexpr std::string_view temporaryPrefix = ".mqtry-";
constexpr std::string_view temporarySuffix = ".tmp";
constexpr std::size_t temporaryHexDigits = 16;
constexpr std::size_t temporaryNameLength = temporaryPrefix.size() + temporaryHexDigits + temporarySuffix.size();

std::string temporaryName() {
    const auto id = osRandomUuid();
    char name[temporaryNameLength + 1];
    std::snprintf(name, sizeof name, "%.*s%08x%02x%02x%02x%02x%.*s", static_cast<int>(temporaryPrefix.size()),
                  temporaryPrefix.data(), static_cast<unsigned>(::getpid()), id[0], id[1], id[2], id[3],
                  static_cast<int>(temporarySuffix.size()), temporarySuffix.data());
    return name;
}

// The process id of a temporary's writer, or none for names not ours.
std::optional<pid_t> temporaryWriter(const std::string& name) {
    if (name.size() != temporaryNameLength || !name.starts_with(temporaryPrefix) || !name.ends_with(temporarySuffix))
        return std::nullopt;
    unsigned long pid = 0;
    for (std::size_t i = 0; i < temporaryHexDigits; ++i) {
        const char c = name[temporaryPrefix.size() + i];
        const bool digit = c >= '0' && c <= '9';
        if (!digit && !(c >= 'a' && c <= 'f'))
            return std::nullopt;
        if (i < 8)
            pid = pid * 16 + static_cast<unsigned long>(digit ? c - '0' : c - 'a' + 10);
    }
    return static_cast<pid_t>(pid);
}

// An unnamed file in `folder` that vanishes with its last descriptor, so a
// writer killed half way leaves nothing behind; -1 (errno set) when the
// system or the file system cannot make one.
int openUnnamedFile(const std::string& folder) {
#if defined(O_TMPFILE)
    return ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
#else
    (void)folder;
    errno = EOPNOTSUPP;
    return -1;
#endif
}

// Gives the unnamed file a name, so that it can be renamed over the target.
bool linkUnnamedFile(int descriptor, const std::string& name) {
#if defined(O_TMPFILE)
    // Through /proc, since linking by descriptor needs a privilege.
    const std::string self = "/proc/self/fd/" + std::to_string(descriptor);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return true;
    return errno == ENOENT && ::linkat(descriptor, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0;
#else
    (void)descriptor;
    (void)name;
    errno = EOPNOTSUPP;
    return false;
#endif
}

bool writeAll(int descriptor, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ::ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

// Writes `bytes` to a new hidden file beside `path`, flushed to disk, and
// returns its name; on failure removes it and throws with `path`.
std::string writeTemporaryBeside(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string name = fileName(path);
    const std::string folderPrefix = path.substr(0, path.size() - name.size());
    const std::string temporary = folderPrefix + temporaryName();

    int file = openUnnamedFile(folderPrefix.empty() ? "." : folderPrefix);
    const bool unnamed = file >= 0;
    // Only a missing feature falls back on a named temporary; a folder that
    // refuses the unnamed file would refuse a named one as well.
    if (!unnamed && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
        throwErrno(path);
    if (!unnamed) {
        // Exclusive: never open a file someone else just made under the same name.
        file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file < 0)
            throwErrno(path);
    }

    bool named = !unnamed;
    const auto fail = [&] {
        const int saved = errno;
        if (file >= 0)
            ::close(file);
        if (named)
            ::unlink(temporary.c_str());
        throwError(std::error_code(saved, std::generic_category()), path);
    };
    // The name must never show a file whose data is not yet on disk.
    if (!writeAll(file, bytes) || ::fsync(file) != 0)
        fail();
    if (unnamed) {
        if (!linkUnnamedFile(file, temporary))
            fail();
        named = true;
    }
    if (::close(std::exchange(file, -1)) != 0)
        fail();
    return temporary;
}

// Gives `from` the name `to` unless `to` exists; 0 or the errno of the
// failure (EEXIST when the name is taken).
int renameWithoutReplacing(const std::string& from, const std::string& to) {
#if defined(__linux__)
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return errno;
#endif
    // Where the file system cannot rename without replacing, a hard link
    // fails on an existing name just the same.
    if (::link(from.c_str(), to.c_str()) != 0)
        return errno;
    ::unlink(from.c_str());
    return 0;
}

} // namespace

fs::path pathFromText(const std::string& text) {
    return fs::path(std::u8string(text.begin(), text.end()));
}

std::string pathText(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

std::string fileName(const std::string& path) {
    std::size_t end = path.size();
    std::size_t start = end;
    while (start > 0 && !isSeparator(path[start - 1]))
        --start;
    return path.substr(start, end - start);
}

std::string joinPath(const std::string& folder, const std::string& name) {
    constexpr char separator = static_cast<char>(fs::path::preferred_separator);
    if (folder.empty() || folder.back() == '/' || folder.back() == separator)
        return folder + name;
    return folder + separator + name;
}

bool hasWavExtension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot != std::string::npos && asciiLowercase(std::string_view(name).substr(dot)) == ".wav";
}

std::string expandTilde(const std::string& path, const std::string& homeFolder) {
    if (path == "~")
        return homeFolder;
    if (path.size() >= 2 && path[0] == '~' && isSeparator(path[1])) {
        // "~/" on a home of "/" must not become "//".
        if (!homeFolder.empty() && isSeparator(homeFolder.back()))
            return homeFolder + path.substr(2);
        return homeFolder + path.substr(1);
    }
    return path;
}

std::vector<std::string> listFolder(const std::string& folder) {
    std::error_code error;
    fs::directory_iterator it(pathFromText(folder), error);
    if (error)
        throwError(error, folder);
    std::vector<std::string> names;
    for (const fs::directory_iterator end; it != end; it.increment(error)) {
        names.push_back(fileName(pathText(it->path())));
    }
    if (error)
        throwError(error, folder);
    return names;
}

void createFolder(const std::string& folder) {
    std::error_code error;
    fs::create_directories(pathFromText(folder), error);
    if (error)
        throwError(error, folder);
}

void writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = writeTemporaryBeside(path, bytes);
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        throwError(std::error_code(saved, std::generic_category()), path);
    }
}

bool writeNewFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = writeTemporaryBeside(path, bytes);
    try {
        if (publishWithoutReplacing(temporary, path))
            return true;
    } catch (const std::system_error&) {
        ::unlink(temporary.c_str());
        throw;
    }
    ::unlink(temporary.c_str());
    return false;
}

std::string writeTemporaryFor(const std::string& path, std::span<const std::uint8_t> bytes) {
    return writeTemporaryBeside(path, bytes);
}

void publishReplacing(const std::string& temporary, const std::string& path) {
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        throwErrno(path);
}

bool publishWithoutReplacing(const std::string& temporary, const std::string& path) {
    const int error = renameWithoutReplacing(temporary, path);
    if (error == 0)
        return true;
    if (error == EEXIST)
        return false;
    throwError(std::error_code(error, std::generic_category()), path);
}

std::optional<std::string> linkTemporaryTo(const std::string& path) {
    const std::string name = fileName(path);
    const std::string link = path.substr(0, path.size() - name.size()) + temporaryName();
    if (::link(path.c_str(), link.c_str()) == 0)
        return link;
    if (errno == ENOENT)
        return std::nullopt;
    throwErrno(path);
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev
           && first.st_ino == second.st_ino;
}

namespace {

std::string numberedName(const std::string& stem, const std::string& extension, std::uint64_t n) {
    std::string name = stem;
    if (n > 1)
        name.append("-").append(std::to_string(n));
    return name.append(extension);
}

std::pair<std::string, std::string> stemAndExtension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0)
        return {name, std::string()};
    return {name.substr(0, dot), name.substr(dot)};
}

bool nameTaken(const std::string& path) {
    std::error_code error;
    // A dangling symlink holds its name too.
    const fs::file_status status = fs::symlink_status(pathFromText(path), error);
    if (status.type() == fs::file_type::not_found)
        return false;
    if (error)
        throw std::system_error(error, path);
    return true;
}

} // namespace

std::string numberedName(const std::string& name, std::uint64_t n) {
    const auto [stem, extension] = stemAndExtension(name);
    return numberedName(stem, extension, n);
}

std::string writeUnderFreeName(const std::string& folder, const std::string& stem, const std::string& extension,
                               std::span<const std::uint8_t> bytes) {
    for (std::uint64_t n = 1;; ++n) {
        const std::string path = pathText(pathFromText(folder) / pathFromText(numberedName(stem, extension, n)));
        if (!nameTaken(path) && writeNewFileAtomically(path, bytes))
            return path;
    }
}

std::string writeUnderFreeName(const std::string& folder, const std::string& name, std::span<const std::uint8_t> bytes) {
    const auto [stem, extension] = stemAndExtension(name);
    return writeUnderFreeName(folder, stem, extension, bytes);
}

namespace {

// Each regular file of `folder` (not following links) with how long it has
// not changed; nothing for a folder that cannot be listed.
template <typename Visit>
void forEachFileWithAge(const std::string& folder, Visit visit) {
    std::vector<std::string> names;
    try {
        names = listFolder(folder);
    } catch (const std::system_error&) {
        return; // whoever writes into the folder reports why it cannot be read
    }
    const auto now = std::chrono::system_clock::now();
    for (const std::string& name : names) {
        const std::string path = joinPath(folder, name);
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
            continue;
        visit(name, path, now - std::chrono::system_clock::from_time_t(info.st_mtime));
    }
}

} // namespace

void removeOldFiles(const std::string& folder, std::chrono::seconds age) {
    forEachFileWithAge(folder, [age](const std::string&, const std::string& path, auto unchangedFor) {
        if (unchangedFor > age)
            ::unlink(path.c_str());
    });
}

void removeStaleTemporaries(const std::string& folder) {
    using namespace std::chrono;
    forEachFileWithAge(folder, [](const std::string& name, const std::string& path, auto unchangedFor) {
        const auto writer = temporaryWriter(name);
        if (!writer)
            return;
        // A writer on another machine sharing the folder is "gone" here too,
        // but still writes, which keeps its file's time fresh.
        const bool writerGone = ::kill(*writer, 0) != 0 && errno == ESRCH;
        if ((writerGone && unchangedFor > minutes(1)) || unchangedFor > hours(24))
            ::unlink(path.c_str());
    });
}

} // namespace marquetry::model
