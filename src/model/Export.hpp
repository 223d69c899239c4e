#pragma once

#include "audio/WavData.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/GeneratedLoop.hpp"
#include "model/Generation.hpp"
#include "model/RunSettings.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace marquetry::model {

/// The folder of the output folder the window writes slice kits into, and a
/// replay writes the kit of a manifest that had one.
inline constexpr const char* kitFolderName = "kit";

/// Everything one export needs, as plain inputs, so that the window and the
/// command line write the same files.
struct ExportJob {
    const RunRecord* run = nullptr;          ///< the run the variations come from
    std::span<const GeneratedLoop> loops;    ///< every variation of that run, in order
    std::vector<std::int64_t> numbers;       ///< the ones to write, from 1, ascending
    audio::WavData format;                   ///< the header fields of every file written; no PCM needed
    ExportOptions options;
    /// The tempo tags and kit are written at; without a usable one (see
    /// usableTempo) files are written untagged and no kit is written.
    std::optional<chop::TempoEstimate> tagTempo;
    std::string outputDir;                   ///< expanded; created when missing
    std::optional<std::string> kitDir;       ///< where the kit goes when options.kit; created when missing
    std::optional<std::string> manifestPath; ///< where the manifest goes when options.manifest
    /// Asked between files; true abandons the export, publishing nothing.
    std::function<bool()> stopRequested;
    /// For a replay: the SHA-256 each variation's file must have, by number;
    /// a file that would differ refuses the export before it is published.
    std::map<std::int64_t, std::string> expectedSha256;
};

/// What an export wrote.
struct ExportResult {
    std::vector<std::string> files;      ///< the audio files, in order
    std::vector<std::string> kitFiles;   ///< the slice kit's files, if any
    std::optional<std::string> manifest; ///< the manifest, if one was written
    std::optional<double> tagTempoBpm;   ///< the tempo written into tags, if tags were written
    std::optional<std::string> skipped;  ///< what was asked for but not written, and why, as a sentence
    std::vector<std::string> trashed;    ///< the paths whose old files went to the Trash
    std::vector<std::string> keptReplaced; ///< where old files the Trash could not take were kept
    std::string status;                  ///< the status line that reports it
};

/// An export refused before anything was written, for a reason of its own
/// rather than a failure of the file system; what() is the whole sentence.
class ExportRefusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Writes the chosen variations of a run into the output folder as one
/// transaction: every file (audio, kit slices, SFZ, MIDI files, manifest)
/// is first written as a temporary beside its target, and only when all
/// are written are they published, the manifest last. Any failure (a full
/// disk, an unwritable folder, a stop request) publishes nothing and
/// removes the temporaries. Refused before the first byte: a target that
/// is a source of the run (ExportRefusal), or that two files of the export
/// share, and folders that cannot be made or written. A name already taken
/// is replaced, its old file moved to the Trash (see moveToTrash) or, where
/// the Trash cannot take it, kept beside the new one under the next free
/// NAME-2, NAME-3, ...; under options.keepExisting the new file takes the
/// next free name at the moment it is published, so concurrent exports
/// never share a name, and a kit takes one number for all its files.
/// Throws ExportRefusal, or std::system_error and the writers' errors with
/// their own descriptions. Any thread; reads only its inputs.
ExportResult exportRun(const ExportJob& job);

/// The bytes exportRun writes for `pcm` laid out as `placements`: a plain
/// WAV file in `format`, or with loop tags at `tagTempo` (a cue per
/// placement) when `tags` is asked and the tempo is usable. Pure.
audio::Bytes exportedFileBytes(const audio::WavData& format, std::span<const std::uint8_t> pcm,
                               std::span<const chop::Placement> placements, bool tags,
                               const std::optional<chop::TempoEstimate>& tagTempo);

/// The name of a run's manifest beside its variations:
/// "AmenBreak170_mqtry_pivot_manifest.json".
std::string manifestFileName(const RunRecord& run);

} // namespace marquetry::model
