#pragma once

// Real files for the tests that need them: a fresh folder that goes away
// with everything in it, and whole files written and read in one call.

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace marquetry::audio::test {

/// A new empty folder under the system's temporary folder, removed with its
/// contents when the object goes.
struct TemporaryFolder {
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "marquetry-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot create a temporary folder");
        path = pattern;
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path;
};

/// Writes `bytes` to `path` whole, replacing any file there; returns `path`.
inline std::string writeFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

inline std::string readText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The names of a folder's entries, sorted.
inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// Every file of a folder by name, with its bytes; a subfolder by its name
/// and "/".
inline std::map<std::string, std::string> folderContents(const std::filesystem::path& folder) {
    std::map<std::string, std::string> contents;
    for (const std::string& name : namesIn(folder))
        contents[name] = std::filesystem::is_directory(folder / name) ? "/" : readText(folder / name);
    return contents;
}

} // namespace marquetry::audio::test
