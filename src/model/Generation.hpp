#pragma once

#include "chop/ChopModel.hpp"
#include "chop/RunProgress.hpp"
#include "chop/VariationPlan.hpp"
#include "model/GeneratedLoop.hpp"
#include "model/RunSettings.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace marquetry::model {

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
    RunSettings settings; ///< as the run was asked for
    std::uint64_t seed = 0; ///< the seed actually used, after the clock if it decided
    std::vector<SourceRecord> sources;
    std::vector<chop::PoolSlice> pool;

    /// True when the seed text was not a whole number, so the clock chose.
    bool seedFromClock() const;

    bool operator==(const RunRecord&) const = default;
};

/// A source file read once: the digest of its bytes and the record decoded
/// from those same bytes.
struct ReadSource {
    std::string sha256;
    audio::WavData wav;
};

/// Reads the file at `path` whole, hashes it and decodes it. Throws the
/// reader's errors. Safe on any thread.
ReadSource readSource(const std::string& path);

struct GenerationResult {
    RunRecord run;
    audio::WavData reference; ///< the first source, with its own PCM
    std::vector<GeneratedLoop> loops;
};

/// Reads and decodes the sources (those in `alreadyRead`, by path, are
/// taken from there instead of being read again), slices them into one
/// pool, plans every variation from one seeded generator, then renders them
/// on up to `threads` threads (0: one per core); equal settings and seeds
/// give equal bytes whatever the thread count. Refuses a run whose plan or
/// output would not fit in the memory available. Throws AppError or the
/// reader's file errors; any failure abandons the whole run, and when
/// reading, matching or slicing one source failed, its path is written to
/// `failedSource` (if given) before the throw. With `progress`, counts the
/// variations rendered there and throws chop::RunCancelled soon after it is
/// cancelled, between sources, variations and stretch blocks. Reads only
/// its arguments: safe on a worker thread.
GenerationResult runGeneration(const RunSettings& settings, const std::function<std::int64_t()>& unixSeconds,
                               const std::function<playback::Uuid()>& randomUuid, unsigned threads = 0,
                               std::map<std::string, ReadSource> alreadyRead = {},
                               std::string* failedSource = nullptr, chop::RunProgress* progress = nullptr);

/// The status line of a finished run: "Generated 10 preview loop(s) from 1
/// source file using Grid chop model.".
std::string runSummary(const RunRecord& run, std::size_t variations);

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
