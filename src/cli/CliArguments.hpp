#pragma once

#include "chop/ChopModel.hpp"
#include "chop/FitMode.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace marquetry::cli {

/// Exit statuses of the program.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1; ///< the model refused the request or the run failed
inline constexpr int exitUsage = 2;   ///< the command line itself is wrong

/// A `generate` request as typed. Settings left out stay none, so that the
/// model's own defaults apply; values are not range-checked, because the
/// model's checks and messages decide what it accepts.
struct GenerateOptions {
    /// Absolute and lexically normal, so it equals the model's scanned entry.
    std::string sourceFile;
    /// Same form as `sourceFile`, each in its folder; Mashup Mode is on
    /// exactly when this is not empty.
    std::vector<std::string> mashupFiles;
    std::optional<std::int64_t> slices;
    std::optional<std::int64_t> versions;
    std::optional<chop::ChopModel> chopModel;
    std::optional<std::string> seedText;
    std::optional<double> glitchAmount;
    /// 0 (off) or 1 to chop::maxJoinFadeMs: the one setting checked here,
    /// since the model has no message of its own for it.
    std::optional<std::int64_t> joinFadeMs;
    std::optional<chop::FitMode> fit;
    bool matchFormats = false;
    bool matchTempo = false;
    /// Tempos the user gives for loops, by the same path form as
    /// `sourceFile`, in chop::minTempoBpm to chop::maxTempoBpm.
    std::map<std::string, double> tempos;
    /// As typed: the model expands a leading tilde itself.
    std::string outputDir;
    /// Variation numbers (from 1) that stay ticked, ascending, no repeats;
    /// empty means all.
    std::vector<std::int64_t> picks;
    /// Where to write the run's manifest after the export, if anywhere.
    std::optional<std::string> manifestPath;
    /// Never replace a file: write NAME-2.wav, NAME-3.wav, ... instead.
    bool keepExisting = false;
    /// Write tempo, loop and slice markers into each file.
    bool tags = false;
    /// Where to write the slice kit (slices, SFZ, MIDI), if anywhere.
    std::optional<std::string> kitDir;
    /// The tempo the tags and the kit are written at, instead of the
    /// loop's; set after the run, so the run itself never sees it.
    std::optional<double> exportTempo;
};

/// A `replay` request: the manifest to run again and where to write.
struct ReplayOptions {
    std::string manifestPath;
    std::string outputDir;
};

/// An `import` request: the files to convert and the folder to put them in.
struct ImportOptions {
    std::vector<std::string> files;
    std::string folder;
};

/// An `info` request: the files to describe, as text or as JSON.
struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

struct CliArguments {
    enum class Command { help, version, generate, replay, import, info };
    Command command = Command::help;
    GenerateOptions generate;
    ReplayOptions replay;
    ImportOptions import;
    InfoOptions info;
};

/// Parses the arguments that follow the program name. Returns the request,
/// or a one-line message saying what is wrong. Reads the working folder to
/// make paths absolute; touches nothing else.
std::variant<CliArguments, std::string> parseArguments(const std::vector<std::string>& arguments);

/// Makes `text` an absolute, lexically normal file path, or none when it
/// names no file (empty, or ending in a separator).
std::optional<std::string> normalFilePath(const std::string& text);

/// The usage text, ending in a newline.
std::string usageText();

/// Writes "marquetry-cli: <message>" and the usage to `err`; returns exitUsage.
int reportUsageError(std::ostream& err, const std::string& message);

} // namespace marquetry::cli
