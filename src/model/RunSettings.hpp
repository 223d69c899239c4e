#pragma once

#include "chop/VariationPlan.hpp"
#include "model/Platform.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace marquetry::model {

/// The slice counts a run may be asked for, in the window and on the
/// command line alike.
inline constexpr std::int64_t minSliceCount = 4;
inline constexpr std::int64_t maxSliceCount = 128;

/// What an export writes beside the plain files, and how it treats a name
/// already taken.
struct ExportOptions {
    bool manifest = false;     ///< a JSON description of the run
    bool keepExisting = false; ///< never replace a file: NAME-2.wav, NAME-3.wav, ...
    bool tags = false;         ///< tempo, loop and slice markers in each file
    bool kit = false;          ///< the slices, an SFZ instrument and a MIDI file per variation

    bool operator==(const ExportOptions&) const = default;
};

/// Everything that decides a run and its export, as one plain value: the
/// window holds one, the command line parses into one, the manifest and the
/// run history record one, the plugin fills one. Adding a setting means a
/// field here, its control, its option key (see the table in the source),
/// its command-line flag and its manifest key.
struct RunSettings {
    std::string seedText; ///< a blank or unparsable seed: the wall clock second decides
    bool mashupMode = false;
    std::set<std::string> checkedPaths;
    std::string selectedPath;
    /// Slices, model, count, glitch amount, join fade and fit.
    chop::PlanSettings plan;
    bool matchFormats = false; ///< convert the other loops of a mashup to the reference's format first
    bool matchTempo = false;   ///< stretch the other loops of a mashup to the reference's tempo first
    std::map<std::string, double> tempoOverrides; ///< the user's tempo of a file, in BPM, over the estimate
    /// The user's meter of a file, in quarter notes a bar (3 or 4), over the
    /// estimate; it shapes only the tags and the kit's MIDI files.
    std::map<std::string, std::int64_t> meterOverrides;
    ExportOptions exportOptions;
    /// Variation numbers (from 1) ticked for export, ascending, no repeats;
    /// empty means every one.
    std::vector<std::int64_t> picks;

    bool operator==(const RunSettings&) const = default;
};

/// Of the user's tempo corrections `all`, those a run of `settings` reads:
/// with tempo matching on, those of its own loops (the selected one and, in
/// Mashup Mode, the checked ones); none otherwise. Only these go into the
/// run's settings, so its manifest records no others.
std::map<std::string, double> tempoOverridesRead(const RunSettings& settings, const std::map<std::string, double>& all);

/// The remembered options (those stored under marquetry.option.* keys) as
/// `store` holds them, over the defaults of `settings`. A stored value that
/// cannot be read (edited by hand, or from another version) leaves the
/// default, rather than guessing.
RunSettings restoreOptions(const SettingsStore& store, RunSettings settings = {});

/// Stores the options of `after` that differ from `before`, each under its key.
void storeOptions(SettingsStore& store, const RunSettings& before, const RunSettings& after);

/// The keys restoreOptions reads, in a stable order.
std::vector<std::string> optionKeys();

} // namespace marquetry::model
