#include "plugin/RunExchange.hpp"

#include <algorithm>

namespace marquetry::plugin {

RunExchange::~RunExchange() {
    delete latest_.load();
}

void RunExchange::publish(std::unique_ptr<const PreparedRun> run) {
    if (const PreparedRun* old = latest_.exchange(run.release()))
        retired_.emplace_back(old);
    collect();
}

void RunExchange::collect() {
    // Sequentially consistent with acquire(): once latest_ no longer names a
    // run, the audio thread either marked it before this load, or will see
    // the newer run when it checks latest_ again and not read this one.
    const PreparedRun* reading = inUse_.load();
    std::erase_if(retired_, [&](const std::unique_ptr<const PreparedRun>& run) { return run.get() != reading; });
}

const PreparedRun* RunExchange::acquire() noexcept {
    const PreparedRun* run = latest_.load();
    for (;;) {
        inUse_.store(run);
        const PreparedRun* now = latest_.load();
        if (now == run)
            return run;
        run = now;
    }
}

} // namespace marquetry::plugin
