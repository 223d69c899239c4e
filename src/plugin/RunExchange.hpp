#pragma once

#include "plugin/PreparedRun.hpp"

#include <atomic>
#include <memory>
#include <vector>

namespace marquetry::plugin {

/// Hands finished runs from one worker thread to one audio thread. The audio
/// thread marks the run it reads (a hazard pointer), so the worker frees a
/// replaced run only once the audio thread has moved on: the audio thread
/// never allocates, frees, locks or waits.
class RunExchange {
public:
    RunExchange() = default;
    RunExchange(const RunExchange&) = delete;
    RunExchange& operator=(const RunExchange&) = delete;
    /// Frees every run; the audio thread must no longer call acquire().
    ~RunExchange();

    /// Worker thread: makes `run` the one the audio thread picks up at its
    /// next acquire(), then frees what it can (see collect()).
    void publish(std::unique_ptr<const PreparedRun> run);

    /// Worker thread: frees the replaced runs the audio thread no longer reads.
    void collect();

    /// Audio thread: the newest run (null before the first), readable until
    /// this thread's next acquire(). Lock-free, no allocation.
    const PreparedRun* acquire() noexcept;

private:
    std::atomic<const PreparedRun*> latest_{nullptr};
    std::atomic<const PreparedRun*> inUse_{nullptr};
    std::vector<std::unique_ptr<const PreparedRun>> retired_; // the worker's alone
};

} // namespace marquetry::plugin
