#include "model/FileSystem.hpp"

#include "model/SystemServices.hpp"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#if defined(_WIN32)
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

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

// A name no other writer picks: the target's name behind a dot, so it stays
// out of sight in the folder, and random hex from the system.
std::string temporarySibling(const std::string& path) {
    const auto id = osRandomUuid();
    static constexpr char hex[] = "0123456789abcdef";
    std::string suffix;
    for (std::size_t i = 0; i < 6; ++i) {
        suffix += hex[id[i] >> 4];
        suffix += hex[id[i] & 0xF];
    }
    const std::string name = fileName(path);
    return path.substr(0, path.size() - name.size()) + "." + name + "." + suffix + ".part";
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

namespace {

// Writes `bytes` to a new hidden file beside `path`, flushed to disk, and
// returns its name; on failure removes it and throws with `path`.
std::string writeTemporaryBeside(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = temporarySibling(path);
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    // "x": never open a file someone else just made under the same name.
    std::unique_ptr<std::FILE, Closer> file(std::fopen(temporary.c_str(), "wbx"));
    if (!file)
        throwErrno(path);

    const auto fail = [&](int savedErrno) {
        file.reset();
        std::remove(temporary.c_str());
        throwError(std::error_code(savedErrno, std::generic_category()), path);
    };
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        fail(errno);
    if (std::fflush(file.get()) != 0)
        fail(errno);
    // The rename must never expose a file whose data is not yet on disk.
#if defined(_WIN32)
    if (_commit(_fileno(file.get())) != 0)
        fail(errno);
#else
    if (::fsync(fileno(file.get())) != 0)
        fail(errno);
#endif
    if (std::fclose(file.release()) != 0) {
        const int saved = errno;
        std::remove(temporary.c_str());
        throwError(std::error_code(saved, std::generic_category()), path);
    }
    return temporary;
}

// Gives `from` the name `to` unless `to` exists; 0 or the errno of the
// failure (EEXIST when the name is taken).
int renameWithoutReplacing(const std::string& from, const std::string& to) {
#if defined(_WIN32)
    // The C library's rename never replaces on Windows.
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
#else
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
#endif
}

} // namespace

void writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = writeTemporaryBeside(path, bytes);
    std::error_code error;
    fs::rename(pathFromText(temporary), pathFromText(path), error);
    if (error) {
        std::remove(temporary.c_str());
        throwError(error, path);
    }
}

bool writeNewFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = writeTemporaryBeside(path, bytes);
    const int error = renameWithoutReplacing(temporary, path);
    if (error == 0)
        return true;
    std::remove(temporary.c_str());
    if (error == EEXIST)
        return false;
    throwError(std::error_code(error, std::generic_category()), path);
}

} // namespace marquetry::model
