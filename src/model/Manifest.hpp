#pragma once

#include "model/GeneratedLoop.hpp"
#include "model/Generation.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marquetry::model {

/// A variation as export wrote it, for the manifest.
struct ExportedVariation {
    std::int64_t number = 0;           ///< its place in the run, from 1
    const GeneratedLoop* loop = nullptr;
    std::string sha256;                ///< of the file export wrote
};

/// The export options that shaped the files, so that a replay writes them
/// again: the tempo written into the tags, if tags were written, whether a
/// slice kit was, and whether taken names were kept.
struct ExportRecord {
    std::optional<double> tagTempoBpm;
    bool kit = false;
    bool keepExisting = false;
    std::int64_t tagBeatsPerBar = 4; ///< the meter of the tags' and the kit's tempo

    bool operator==(const ExportRecord&) const = default;
};

/// A manifest read back: the run it describes and which variations were kept.
/// The run's settings carry the exported variations as its picks and the
/// export options that shaped the files (the manifest itself among them).
struct Manifest {
    RunRecord run;             ///< settings, seed and sources; no pool
    ExportRecord exportRecord; ///< none of the options when the manifest predates them
    std::map<std::int64_t, std::string> variationSha256; ///< each exported file's SHA-256, by number
};

/// A manifest that cannot be used; what() is a sentence for the user.
class ManifestError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The JSON text describing `run` and its exported variations: the settings
/// with the seed actually used, every source with its SHA-256 and format,
/// every exported variation with its file's SHA-256 and its placements.
/// Frames are counted in the format of the run's first source. Pure.
std::string manifestJson(const RunRecord& run, std::span<const ExportedVariation> exported,
                         const ExportRecord& exportRecord);

/// Reads a manifest written by manifestJson. Throws ManifestError naming
/// what is wrong; never lets a parser's own text through.
Manifest parseManifest(std::string_view text);

} // namespace marquetry::model
