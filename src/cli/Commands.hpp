#pragma once

#include "cli/CliArguments.hpp"

#include <ostream>

namespace marquetry::cli {

/// Drives one Generate and Export Selected through the application model on
/// a headless platform. Every status line from the start of generation on
/// goes to `out`; when nothing gets exported, the last one also goes to
/// `err`; after a run, the seed it used goes to `err`. Returns exitSuccess
/// after an export, exitFailure when the model refuses or fails, exitUsage
/// for a request that cannot be started at all. Creates no folder other
/// than the export's. Main thread of the process.
int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err);

/// Reads the manifest at options.manifestPath, checks that every source it
/// lists still has the recorded SHA-256, and generates and exports the same
/// variations into options.outputDir. A changed or missing source or an
/// unusable manifest is refused before anything is written (exitFailure).
int runReplay(const ReplayOptions& options, std::ostream& out, std::ostream& err);

/// Converts each file into options.folder, made when missing (see
/// model::importAudioFile),
/// printing one line per file to `out`: the new file's path, or the file and
/// why it was refused. Returns exitFailure when any was refused.
int runImport(const ImportOptions& options, std::ostream& out);

/// Prints each file's format, frames, duration and estimated tempo and bars
/// to `out`, one line per file, or with options.json a JSON array of
/// objects (file, frames, sampleRate, channels, bitsPerSample, audioFormat,
/// seconds, bpm, bars; bpm and bars null when the tempo cannot be told). A
/// file the reader refuses gets the reader's message (in JSON as "error").
/// Returns exitFailure when any file was refused.
int runInfo(const InfoOptions& options, std::ostream& out);

} // namespace marquetry::cli
