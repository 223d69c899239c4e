#pragma once

#include "cli/CliArguments.hpp"

#include <ostream>

namespace marquetry::cli {

/// Reads the source loop once, runs the generation and exports the picked
/// variations with the same engine and export functions as the window.
/// Every status line the window would show from the start of generation on
/// goes to `out`; when nothing gets exported, the last one also goes to
/// `err`; after a run, the seed it used goes to `err`. Returns exitSuccess
/// after an export, exitFailure when the run or the export is refused or
/// fails, exitUsage for a request that cannot be started at all. Creates no
/// folder other than the export's. An interrupt during the export stops it
/// with nothing published. Main thread of the process.
int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err);

/// Reads the manifest at options.manifestPath (refused beyond 64 MB), reads
/// every source it lists once, checks those bytes against the recorded
/// SHA-256 and generates from them the same variations into
/// options.outputDir, each checked against the manifest's SHA-256 before
/// anything is published. A changed or missing source, a variation that
/// would come out otherwise or an unusable manifest is refused with
/// nothing written (exitFailure).
int runReplay(const ReplayOptions& options, std::ostream& out, std::ostream& err);

/// Converts each file into options.folder, made when missing (see
/// model::importAudioFile),
/// printing one line per file to `out`: the new file's path, or the file and
/// why it was refused. Returns exitFailure when any was refused.
int runImport(const ImportOptions& options, std::ostream& out, std::ostream& err);

/// Prints each file's format, frames, duration and estimated tempo and bars
/// to `out`, one line per file, or with options.json a JSON array of
/// objects (file, frames, sampleRate, channels, bitsPerSample, audioFormat,
/// seconds, bpm, bars; bpm and bars null when the tempo cannot be told). A
/// file the reader refuses gets the reader's message (in JSON as "error").
/// Names that are not UTF-8 appear in JSON with replacement characters.
/// Reads only the headers of files longer than a loop. Returns exitFailure
/// when any file was refused or `out` could not be written.
int runInfo(const InfoOptions& options, std::ostream& out, std::ostream& err);

} // namespace marquetry::cli
