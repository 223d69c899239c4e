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

/// Bytes this process can still allocate without being refused or starving
/// the machine: the least of the memory the system reports available and
/// what the process's address-space and data limits leave. The largest
/// value when the system tells nothing.
std::uint64_t availableMemoryBytes();

/// The current user's home folder, from the environment.
std::string systemHomeFolder();

/// Lets the calling thread run only when nothing else wants the processor,
/// for work nobody waits for, so that it never slows a run or playback down.
/// Meant for a thread of its own that ends with the work. Does nothing where
/// the system offers no such class.
void runThisThreadWhenIdle();

} // namespace marquetry::model
