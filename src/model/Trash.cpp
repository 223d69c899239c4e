#include "model/Trash.hpp"

#include "model/FileSystem.hpp"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace marquetry::model {
namespace {

namespace fs = std::filesystem;

// Names taken this many times over are a folder to clean up, not a reason
// to go on trying.
constexpr std::uint64_t maxNameTries = 10'000;

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

std::string homeTrash() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/')
        return std::string(dataHome) + "/Trash";
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        const passwd* user = ::getpwuid(::getuid());
        home = user != nullptr ? user->pw_dir : nullptr;
    }
    return home != nullptr ? std::string(home) + "/.local/share/Trash" : std::string();
}

// The folder, with any missing parents; the trash's own folders are the
// user's alone, as the specification asks.
bool makeFolder(const std::string& folder, bool private_) {
    std::error_code error;
    fs::create_directories(pathFromText(folder).parent_path(), error);
    if (::mkdir(folder.c_str(), private_ ? 0700 : 0777) != 0 && errno != EEXIST)
        return false;
    struct stat status {};
    return ::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The original path as a trash info file holds it: bytes outside RFC 2396's
// unreserved characters escaped, the slashes kept.
std::string escapedPath(const std::string& path) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        const bool kept = std::string_view("/-_.!~*'()").find(c) != std::string_view::npos;
        if (letter || (byte >= '0' && byte <= '9') || kept) {
            escaped += c;
        } else {
            escaped += '%';
            escaped += hex[byte >> 4];
            escaped += hex[byte & 0xF];
        }
    }
    return escaped;
}

std::string localTimeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

bool writeWhole(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace

TrashOutcome moveToTrash(const std::string& path, const std::string& originalPath) {
    const std::string& restoredPath = originalPath.empty() ? path : originalPath;
    const std::string name = fileName(restoredPath);
    const auto refuse = [&name](const std::string& why) {
        return TrashOutcome{std::nullopt, "Cannot move " + name + " to the Trash: " + why};
    };
    struct stat file {};
    if (::lstat(path.c_str(), &file) != 0)
        return refuse(errnoText(errno) + ".");
    if (!S_ISREG(file.st_mode))
        return refuse("it is not a file.");

    const std::string trash = homeTrash();
    const std::string files = trash + "/files";
    const std::string info = trash + "/info";
    if (trash.empty())
        return refuse("there is no home folder to keep it in.");
    if (!makeFolder(trash, true) || !makeFolder(files, true) || !makeFolder(info, true))
        return refuse("cannot create " + trash + " (" + errnoText(errno) + ").");
    struct stat trashFolder {};
    if (::stat(files.c_str(), &trashFolder) != 0)
        return refuse(errnoText(errno) + ".");
    // Moving across file systems would mean copying, and a trash of its own
    // on that drive; the caller keeps the file under another name instead.
    if (trashFolder.st_dev != file.st_dev)
        return refuse("it is on another drive than the Trash.");

    std::error_code error;
    const fs::path absolute = fs::absolute(pathFromText(restoredPath), error).lexically_normal();
    const std::string original = error ? restoredPath : pathText(absolute);
    const std::string record =
        "[Trash Info]\nPath=" + escapedPath(original) + "\nDeletionDate=" + localTimeNow() + "\n";

    // The info file is made first, exclusively: it reserves the name, as the
    // specification prescribes for several programs trashing at once.
    for (std::uint64_t n = 1; n <= maxNameTries; ++n) {
        const std::string trashedName = numberedName(name, n);
        const std::string infoPath = info + "/" + trashedName + ".trashinfo";
        const int descriptor = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor < 0 && errno == EEXIST)
            continue;
        if (descriptor < 0)
            return refuse(errnoText(errno) + ".");
        const bool written = writeWhole(descriptor, record);
        const int writeError = errno;
        if (::close(descriptor) != 0 || !written) {
            ::unlink(infoPath.c_str());
            return refuse(errnoText(written ? errno : writeError) + ".");
        }
        const std::string trashedPath = files + "/" + trashedName;
        // A file left in files/ without its info file still holds its name.
        struct stat taken {};
        if (::lstat(trashedPath.c_str(), &taken) == 0) {
            ::unlink(infoPath.c_str());
            continue;
        }
        if (::rename(path.c_str(), trashedPath.c_str()) != 0) {
            const int renameError = errno;
            ::unlink(infoPath.c_str());
            return refuse(errnoText(renameError) + ".");
        }
        return TrashOutcome{trashedPath, {}};
    }
    return refuse("too many files of that name are in the Trash already.");
}

} // namespace marquetry::model
