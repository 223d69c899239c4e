#pragma once

#include "model/RunSettings.hpp"

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

/// A `generate` request: the run's settings (the source file as the
/// selected path, the --mashup files as the checked paths, Mashup Mode on
/// exactly when there are any, --pick as the picks) and where to write.
/// Paths are absolute and lexically normal, so they equal what a scan of
/// their folder lists. Values are in range except the variation count,
/// which the run's own check and message judge.
struct GenerateOptions {
    model::RunSettings settings;
    /// As typed: a leading tilde is expanded when the files are written.
    std::string outputDir;
    /// Where the manifest goes; settings.exportOptions.manifest is on exactly when set.
    std::optional<std::string> manifestPath;
    /// Where the slice kit goes; settings.exportOptions.kit is on exactly when set.
    std::optional<std::string> kitDir;
    /// The tempo the tags and the kit are written at, instead of the
    /// loop's; a replay's, so the run itself never sees it.
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
    Command helpOf = Command::help; ///< for Command::help: the command whose help was asked for
    GenerateOptions generate;
    ReplayOptions replay;
    ImportOptions import;
    InfoOptions info;
};

/// A command line that cannot be run: what is wrong, in one line, and the
/// command whose help to point at.
struct UsageError {
    std::string message;
    CliArguments::Command command = CliArguments::Command::help;
};

/// Parses the arguments that follow the program name. Returns the request,
/// or what is wrong. Reads the working folder to
/// make paths absolute; touches nothing else.
std::variant<CliArguments, UsageError> parseArguments(const std::vector<std::string>& arguments);

/// Makes `text` an absolute, lexically normal file path, or none when it
/// names no file (empty, or ending in a separator).
std::optional<std::string> normalFilePath(const std::string& text);

/// The usage text of every command, ending in a newline.
std::string usageText();

/// The usage text of one command: its synopsis and its options.
std::string usageText(CliArguments::Command command);

/// Writes "marquetry-cli: <message>" and a line pointing at the help of
/// `command` to `err`; returns exitUsage.
int reportUsageError(std::ostream& err, const std::string& message,
                     CliArguments::Command command = CliArguments::Command::help);

} // namespace marquetry::cli
