#pragma once

#include "model/Generation.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace marquetry::model {

/// The successful runs of a session, oldest first, so that Back and Forward
/// can bring an earlier one back. Only what it takes to run again to the same
/// bytes is kept (settings, seed, the sources' digests) and the export ticks:
/// variations are regenerated, never stored. Plain value; main thread only.
class RunHistory {
public:
    /// The runs kept; the oldest is dropped beyond this.
    static constexpr std::size_t capacity = 100;

    struct Entry {
        RunSettings settings;             ///< as the run was asked for
        std::uint64_t seed = 0;           ///< the seed it used
        std::vector<std::pair<std::string, std::string>> sources; ///< path and SHA-256 of each source read
        std::vector<bool> ticks;          ///< the export tick of each variation, as last seen

        /// The settings with the seed it used written into the seed text:
        /// the same sources then give the same bytes, whatever the clock says.
        RunSettings replaySettings() const;
    };

    /// Adds a run that has just succeeded, with `variations` ticked
    /// variations, after every other run, and makes it the one shown.
    void add(const RunRecord& run, std::size_t variations);
    /// Makes the run at `index` the one shown, its variations on screen.
    void show(std::size_t index);
    /// The variations on screen no longer belong to a run of the history
    /// (the list was emptied or replaced); Back then brings the current run
    /// back rather than the one before it.
    void leave() { shown_ = false; }
    /// Notes a changed tick of variation `index` (from 0) of the run shown;
    /// nothing when no run is shown.
    void setTick(std::size_t index, bool ticked);

    /// Where Back goes: the run before the one shown, or the current run
    /// itself when it is not on screen; none at the start.
    std::optional<std::size_t> backTarget() const;
    /// Where Forward goes: the run after the current one, if any.
    std::optional<std::size_t> forwardTarget() const;

    std::size_t size() const { return entries_.size(); }
    const Entry& at(std::size_t index) const { return entries_.at(index); }
    /// The run last shown, none before the first run.
    std::optional<std::size_t> current() const { return current_; }
    bool isShown() const { return shown_; }

private:
    std::vector<Entry> entries_;
    std::optional<std::size_t> current_;
    bool shown_ = false;
};

/// The first source of `entry` whose bytes on disk no longer have the
/// digest the run read (also when it cannot be read any more), or none.
/// Reads every source whole; call on the main thread only for short loops.
std::optional<std::string> changedSource(const RunHistory::Entry& entry);

} // namespace marquetry::model
