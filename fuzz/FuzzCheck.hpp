#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace marquetry::fuzz {

/// Reports a broken promise and aborts, which libFuzzer records as a crash
/// and saves the input that caused it.
[[noreturn]] inline void fail(std::string_view what, std::string_view detail = {}) {
    std::fprintf(stderr, "\n*** broken promise: %.*s %.*s\n", static_cast<int>(what.size()), what.data(),
                 static_cast<int>(detail.size()), detail.data());
    std::abort();
}

inline void require(bool condition, std::string_view what, std::string_view detail = {}) {
    if (!condition)
        fail(what, detail);
}

/// Every message the WAV reader may refuse a file with.
inline constexpr std::array<std::string_view, 7> readerMessages{
    "WAV file is too small.",
    "Invalid WAV header.",
    "Corrupt chunk data.",
    "Invalid fmt chunk.",
    "Missing fmt or data chunks.",
    "Only PCM/float WAV files are supported.",
    "Invalid block alignment.",
};

inline bool isReaderMessage(std::string_view message) {
    return std::find(readerMessages.begin(), readerMessages.end(), message) != readerMessages.end();
}

/// A drawable envelope: every value a finite level in [0, 1].
inline bool isDrawable(const std::vector<double>& envelope) {
    return std::all_of(envelope.begin(), envelope.end(),
                       [](double v) { return std::isfinite(v) && v >= 0.0 && v <= 1.0; });
}

} // namespace marquetry::fuzz
