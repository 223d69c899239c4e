#pragma once

#include <atomic>
#include <cstdint>
#include <exception>

namespace marquetry::chop {

/// How far a run has got and whether its owner wants it stopped, shared by
/// the threads that render and the one that watches. Neither field shapes a
/// byte: a run that is not cancelled renders exactly what it would without.
/// Thread safe, lock free.
struct RunProgress {
    std::atomic<bool> cancelled{false};          ///< set by the watcher; the run stops at its next check
    std::atomic<std::int64_t> variationsDone{0}; ///< counted by the run as each variation is finished
};

/// What a run throws when it stops at a check because it was cancelled.
struct RunCancelled : std::exception {
    const char* what() const noexcept override { return "The run was cancelled."; }
};

/// Throws RunCancelled when `progress` is given and cancelled. Thread safe.
inline void throwIfCancelled(const RunProgress* progress) {
    if (progress != nullptr && progress->cancelled.load(std::memory_order_relaxed))
        throw RunCancelled();
}

} // namespace marquetry::chop
