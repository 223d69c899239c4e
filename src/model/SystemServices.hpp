#pragma once

#include "playback/PlaybackTarget.hpp"

#include <cstdint>
#include <string>

namespace marquetry::model {

/// The operating system's own answers, for front ends that need no toolkit.
/// All are thread safe.

/// Whole seconds since 1970-01-01 00:00:00 UTC, truncated.
std::int64_t systemUnixSeconds();

/// A version-4 UUID from the operating system's random source (never from a
/// run's seeded generator, so identifiers do not disturb reproducibility).
playback::Uuid osRandomUuid();

/// The current user's home folder, from the environment.
std::string systemHomeFolder();

} // namespace marquetry::model
