#pragma once

#include "chop/ChopModel.hpp"
#include "chop/VariationPlan.hpp"
#include "model/GeneratedLoop.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace marquetry::model {

/// Everything a Generate run reads, copied from the model when it starts, so
/// the worker never touches the model.
struct GenerationRequest {
    std::string seedText; ///< a blank or unparsable seed: the wall clock second decides
    bool mashupMode = false;
    std::set<std::string> checkedPaths;
    std::string selectedPath;
    std::int64_t sliceCount = 16;
    chop::ChopModel chopModel = chop::ChopModel::grid;
    std::int64_t versions = 10; ///< how many variations
    double glitchAmount = 0.55;
    std::int64_t joinFadeMs = 0; ///< join fade length; 0: off
    chop::FitMode fit = chop::FitMode::off;  ///< to the reference loop's length
    bool matchFormats = false; ///< convert the other loops of a mashup to the reference's format first
    bool matchTempo = false;   ///< stretch the other loops of a mashup to the reference's tempo first
    std::map<std::string, double> tempoOverrides; ///< the user's tempo of a file, in BPM, over the estimate

    bool operator==(const GenerationRequest&) const = default;
};

/// A source as a run read it.
struct SourceRecord {
    std::string path;
    std::string sha256;    ///< of the file's bytes as read
    audio::WavData format; ///< the six format fields; no PCM
    audio::FrameCount frames = 0;

    bool operator==(const SourceRecord&) const = default;
};

/// What is known of a finished run apart from its variations: enough to
/// describe it, and to run it again to the same bytes.
struct RunRecord {
    GenerationRequest request;
    std::uint64_t seed = 0; ///< the seed actually used, after the clock if it decided
    std::vector<SourceRecord> sources;
    std::vector<chop::PoolSlice> pool;

    /// True when the seed text was not a whole number, so the clock chose.
    bool seedFromClock() const;

    bool operator==(const RunRecord&) const = default;
};

struct GenerationResult {
    RunRecord run;
    audio::WavData reference; ///< the first source, with its own PCM
    std::vector<GeneratedLoop> loops;
};

/// Decodes the sources, slices them into one pool, plans every variation
/// from one seeded generator, then renders them on up to `threads` threads
/// (0: one per core); equal requests and seeds give equal bytes whatever the
/// thread count. Throws AppError or the reader's file errors; any failure
/// abandons the whole run, and when reading, matching or slicing one source
/// failed, its path is written to `failedSource` (if given) before the throw.
/// Reads only its arguments: safe on a worker thread.
GenerationResult runGeneration(const GenerationRequest& request, const std::function<std::int64_t()>& unixSeconds,
                               const std::function<playback::Uuid()>& randomUuid, unsigned threads = 0,
                               std::string* failedSource = nullptr);

/// For a mashup run whose loops were pooled as raw bytes although some differ
/// in format from the reference: a sentence naming the first such loop and
/// both formats, to which callers add how to turn matching on. nullopt when
/// they agree or formats were matched.
std::optional<std::string> formatMismatchWarning(const RunRecord& run);

/// The name of variation `number` (from 1) of a run on the selected file
/// `selectedFileName`: its stem cut down to A-Z a-z 0-9 _ - (or "source"),
/// "_mqtry_", the model's tag and the number in at least two digits.
std::string variationName(const std::string& selectedFileName, chop::ChopModel model, std::int64_t number);

/// The part of every variation's name before its number: "AmenBreak170_mqtry_pivot".
std::string variationStem(const std::string& selectedFileName, chop::ChopModel model);

} // namespace marquetry::model
