#pragma once

#include <array>
#include <cstdint>

namespace marquetry::playback {

/// A random 128-bit identifier (a version-4 UUID), in byte order.
using Uuid = std::array<std::uint8_t, 16>;

/// What the preview plays: the source loop, or the variation with `id`.
struct PlaybackTarget {
    enum class Kind { source, generated };

    Kind kind = Kind::source;
    Uuid id{}; ///< meaningful for generated targets only

    static PlaybackTarget source() { return {}; }
    static PlaybackTarget generated(const Uuid& id) { return {Kind::generated, id}; }

    /// Both the source, or both the same variation.
    bool operator==(const PlaybackTarget& other) const {
        return kind == other.kind && (kind == Kind::source || id == other.id);
    }
};

} // namespace marquetry::playback
