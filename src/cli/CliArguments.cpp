#include "cli/CliArguments.hpp"

#include "chop/JoinFades.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/ErrorText.hpp"
#include "model/FileSystem.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;

// Whole text or nothing: "16x" and "" are malformed, not 16 and 0.
std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// Infinities and NaN would reach the glitch effects' sample arithmetic, so
// they count as malformed rather than as a value for the model to judge.
std::optional<double> parseReal(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::string chopModelLabels() {
    std::string labels;
    for (const chop::ChopModel model : chop::allChopModels)
        labels += (labels.empty() ? "" : ", ") + std::string(chop::label(model));
    return labels;
}

std::optional<chop::ChopModel> parseChopModel(std::string_view text) {
    for (const chop::ChopModel model : chop::allChopModels)
        if (model::asciiLowercase(chop::label(model)) == model::asciiLowercase(text))
            return model;
    return std::nullopt;
}

std::optional<std::vector<std::int64_t>> parsePicks(std::string_view text) {
    if (model::asciiLowercase(text) == "all")
        return std::vector<std::int64_t>{};
    std::vector<std::int64_t> picks;
    std::size_t start = 0;
    while (true) {
        const std::size_t comma = text.find(',', start);
        const auto number = parseInteger(text.substr(start, comma == std::string_view::npos ? comma : comma - start));
        if (!number || *number < 1)
            return std::nullopt;
        picks.push_back(*number);
        if (comma == std::string_view::npos)
            break;
        start = comma + 1;
    }
    std::sort(picks.begin(), picks.end());
    picks.erase(std::unique(picks.begin(), picks.end()), picks.end());
    return picks;
}

std::string malformed(const std::string& name, const std::string& value, const std::string& expected) {
    return name + " expects " + expected + ", not " + model::quoted(value);
}

using Apply = std::optional<std::string>;

// One option of `generate`: how it is typed, what the usage says of it, and
// how its text becomes part of the request (a message when it cannot).
// Flags get an empty text; repeatable options get one call per value.
struct GenerateOption {
    const char* name;
    const char* value; ///< the value's placeholder, or nullptr for a flag
    bool repeatable;
    const char* help;  ///< lines of the usage, without the option column
    Apply (*apply)(GenerateOptions& options, const std::string& text);
};

// Every option of `generate`, once: CLI11 registers them from this table,
// the usage lists them from it and the request is filled through it, in
// this order (--source before --mashup, which must share its folder).
const GenerateOption generateOptions[] = {
    {"--source", "FILE", false, "the loop to chop; its folder is the source folder",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto source = normalFilePath(text);
         if (!source)
             return "--source needs a file, not " + model::quoted(text);
         o.settings.selectedPath = *source;
         return std::nullopt;
     }},
    {"--mashup", "FILE", true,
     "pool this loop of the source folder too (repeatable);\nMashup Mode is on exactly when one is given",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto member = normalFilePath(text);
         if (!member)
             return "--mashup needs a file, not " + model::quoted(text);
         // The window can only check files it lists, which are the source
         // folder's; the command line offers no more than that.
         const fs::path sourceFolder = model::pathFromText(o.settings.selectedPath).parent_path();
         if (model::pathFromText(*member).parent_path() != sourceFolder)
             return "--mashup file " + model::quoted(text) + " is not in the source folder "
                    + model::quoted(model::pathText(sourceFolder));
         o.settings.checkedPaths.insert(*member);
         o.settings.mashupMode = true;
         return std::nullopt;
     }},
    {"--slices", "N", false, "slices per source (default 16, 4 to 128)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto slices = parseInteger(text);
         if (!slices)
             return malformed("--slices", text, "a whole number");
         if (*slices < model::minSliceCount || *slices > model::maxSliceCount)
             return malformed("--slices", text,
                              "a whole number from " + std::to_string(model::minSliceCount) + " to "
                                  + std::to_string(model::maxSliceCount));
         o.settings.plan.sliceCount = *slices;
         return std::nullopt;
     }},
    {"--variations", "N", false, "how many breaks to generate (default 10)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto count = parseInteger(text);
         if (!count)
             return malformed("--variations", text, "a whole number");
         o.settings.plan.variationCount = *count;
         return std::nullopt;
     }},
    {"--model", "NAME", false, "chop model, any letter case (default Grid):\n@MODELS@",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto model = parseChopModel(text);
         if (!model)
             return malformed("--model", text, "one of " + chopModelLabels());
         o.settings.plan.chopModel = *model;
         return std::nullopt;
     }},
    {"--seed", "TEXT", false,
     "a whole number; the same seed gives the same breaks\n(default blank: the clock's second seeds the run)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         o.settings.seedText = text;
         return std::nullopt;
     }},
    {"--glitch", "X", false, "effect amount of the Glitch model (default 0.55)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         // Infinities and NaN would reach the glitch effects' sample
         // arithmetic, so they are malformed rather than a value to judge.
         const auto amount = parseReal(text);
         if (!amount)
             return malformed("--glitch", text, "a finite number");
         o.settings.plan.glitchAmount = *amount;
         return std::nullopt;
     }},
    {"--join-fade", "MS", false,
     "fade every join and the loop seam over MS milliseconds\n(1 to @MAXFADE@) so slices meet without a click (default "
     "0: off)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto ms = parseInteger(text);
         if (!ms || *ms < 0 || *ms > chop::maxJoinFadeMs)
             return malformed("--join-fade", text,
                              "0 (off) or a whole number of milliseconds from 1 to "
                                  + std::to_string(chop::maxJoinFadeMs));
         o.settings.plan.joinFadeMs = *ms;
         return std::nullopt;
     }},
    {"--fit", "MODE", false,
     "bring every break to the length of the --source loop, so it\nsits on the bar grid: off (default), trim (cut, or "
     "pad with\nsilence) or stretch (change its tempo, keep its pitch)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto mode = chop::parseFitMode(text);
         if (!mode)
             return malformed("--fit", text, "off, trim or stretch");
         o.settings.plan.fit = *mode;
         return std::nullopt;
     }},
    {"--match-formats", nullptr, false,
     "convert the --mashup loops to the --source loop's format\n(channels, bit depth, sample rate) before slicing",
     [](GenerateOptions& o, const std::string&) -> Apply {
         o.settings.matchFormats = true;
         return std::nullopt;
     }},
    {"--match-tempo", nullptr, false, "stretch the --mashup loops to the --source loop's tempo\nbefore slicing",
     [](GenerateOptions& o, const std::string&) -> Apply {
         o.settings.matchTempo = true;
         return std::nullopt;
     }},
    {"--tempo", "FILE=BPM", true,
     "the tempo of a loop, over its estimate (@TEMPOS@;\nrepeatable); marquetry-cli info shows the estimates",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const std::size_t equals = text.rfind('=');
         const auto file = equals == std::string::npos ? std::nullopt : normalFilePath(text.substr(0, equals));
         const auto bpm = equals == std::string::npos ? std::nullopt : parseReal(text.substr(equals + 1));
         if (!file || !bpm || *bpm < chop::minTempoBpm || *bpm > chop::maxTempoBpm)
             return malformed("--tempo", text, "FILE=BPM with a tempo from " + chop::tempoRangeText());
         o.settings.tempoOverrides[*file] = *bpm;
         return std::nullopt;
     }},
    {"--meter", "FILE=N/4", true,
     "the meter of a loop, over its estimate: 3/4 (6/8 counts as\n3/4) or 4/4 (repeatable); it goes into --tags and --kit",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const std::size_t equals = text.rfind('=');
         const auto file = equals == std::string::npos ? std::nullopt : normalFilePath(text.substr(0, equals));
         const std::string meter = equals == std::string::npos ? "" : text.substr(equals + 1);
         const std::int64_t beats = meter == "4/4" ? 4 : meter == "3/4" || meter == "6/8" ? 3 : 0;
         if (!file || beats == 0)
             return malformed("--meter", text, "FILE=3/4, FILE=6/8 or FILE=4/4");
         o.settings.meterOverrides[*file] = beats;
         return std::nullopt;
     }},
    {"--output", "DIR", false, "folder to write into, created when missing",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         if (text.empty())
             return std::string("--output needs a folder");
         o.outputDir = text;
         return std::nullopt;
     }},
    {"--pick", "LIST", false, "breaks to write, such as 1,3,5, or all (default all)",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         const auto picks = parsePicks(text);
         if (!picks)
             return malformed("--pick", text, "'all' or variation numbers from 1, such as 1,3,5");
         o.settings.picks = *picks;
         return std::nullopt;
     }},
    {"--manifest", "FILE", false,
     "also write a JSON manifest of the run: settings, the seed\nused, the sources' and files' SHA-256, every slice "
     "placed",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         if (text.empty())
             return std::string("--manifest needs a file");
         o.manifestPath = text;
         o.settings.exportOptions.manifest = true;
         return std::nullopt;
     }},
    {"--keep-existing", nullptr, false,
     "never replace a file: write NAME-2.wav, NAME-3.wav, ...\nbeside it instead (default: replace it)",
     [](GenerateOptions& o, const std::string&) -> Apply {
         o.settings.exportOptions.keepExisting = true;
         return std::nullopt;
     }},
    {"--tags", nullptr, false,
     "write the loop's tempo, beats, a loop over the whole file\nand a marker at every slice into each file (needs a "
     "known\ntempo, @TEMPOS@ BPM; see info and --tempo)",
     [](GenerateOptions& o, const std::string&) -> Apply {
         o.settings.exportOptions.tags = true;
         return std::nullopt;
     }},
    {"--kit", "DIR", false,
     "also write a slice kit into DIR: one WAV per slice used,\nan SFZ instrument (slice 1 on note 36 upward) and a "
     "MIDI\nfile per break that plays it",
     [](GenerateOptions& o, const std::string& text) -> Apply {
         if (text.empty())
             return std::string("--kit needs a folder");
         o.kitDir = text;
         o.settings.exportOptions.kit = true;
         return std::nullopt;
     }},
};

// The help column of an option, its placeholders filled in.
std::string optionHelp(const GenerateOption& option) {
    std::string help = option.help;
    for (const auto& [placeholder, value] : {std::pair<std::string, std::string>("@MODELS@", chopModelLabels()),
                                             {"@MAXFADE@", std::to_string(chop::maxJoinFadeMs)},
                                             {"@TEMPOS@", chop::tempoRangeText()}}) {
        if (const std::size_t at = help.find(placeholder); at != std::string::npos)
            help.replace(at, placeholder.size(), value);
    }
    return help;
}

// "  --slices N       slices per source ...", continuation lines under the
// help column.
std::string optionLines(const std::string& head, const std::string& help) {
    constexpr std::size_t column = 19;
    std::string lines = "  " + head;
    lines.append(lines.size() < column ? column - lines.size() : 1, ' ');
    for (const char c : help)
        lines += c == '\n' ? "\n" + std::string(column, ' ') : std::string(1, c);
    return lines + "\n";
}

// CLI11's texts for the two mistakes it reports by option name, said the
// way the rest of the command line says things.
std::string describeParseError(const CLI::ParseError& error) {
    const std::string text = error.what();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        const std::string name = text.substr(0, text.find(':'));
        return name + (text.find("missing") != std::string::npos ? " needs a value" : " is given twice");
    }
    return text.empty() ? std::string("the arguments cannot be read") : text;
}

} // namespace

std::optional<std::string> normalFilePath(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    std::error_code error;
    const fs::path absolute = fs::absolute(model::pathFromText(text), error);
    if (error)
        return std::nullopt;
    fs::path normal = absolute.lexically_normal();
    if (!normal.has_filename())
        return std::nullopt;
    return model::pathText(normal);
}

std::variant<CliArguments, UsageError> parseArguments(const std::vector<std::string>& arguments) {
    using Command = CliArguments::Command;
    if (arguments.empty())
        return UsageError{"no command given", Command::help};

    // Help is ours, not CLI11's: each command's usage from our own text.
    // Left-over words are reported in the program's own terms, below.
    bool version = false;
    CLI::App app("marquetry-cli", "marquetry-cli");
    std::vector<std::pair<CLI::App*, Command>> commands;
    std::optional<Command> helpOf;
    const auto command = [&](CLI::App& parent, Command which) {
        parent.set_help_flag();
        parent.add_flag_callback("-h,--help", [&helpOf, which] { helpOf = which; });
        parent.allow_extras();
        commands.emplace_back(&parent, which);
        return &parent;
    };
    command(app, Command::help);
    app.require_subcommand(0, 1);
    app.add_flag("--version", version);

    // Each option's texts as typed, by name, in the order given.
    std::map<std::string, std::vector<std::string>> typed;
    CLI::App* generate = command(*app.add_subcommand("generate"), Command::generate);
    for (const GenerateOption& option : generateOptions) {
        std::vector<std::string>& texts = typed[option.name];
        if (option.value == nullptr) {
            generate->add_flag_callback(option.name, [&texts] { texts.emplace_back(); });
            continue;
        }
        if (option.repeatable)
            generate
                ->add_option_function<std::vector<std::string>>(
                    option.name,
                    [&texts](const std::vector<std::string>& values) {
                        texts.insert(texts.end(), values.begin(), values.end());
                    })
                ->expected(1)
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        else
            generate->add_option_function<std::string>(option.name,
                                                       [&texts](const std::string& text) { texts.push_back(text); });
    }
    generate->get_option("--source")->required();
    generate->get_option("--output")->required();

    ReplayOptions replay;
    CLI::App* replayCommand = command(*app.add_subcommand("replay"), Command::replay);
    replayCommand->add_option("MANIFEST", replay.manifestPath)->required();
    replayCommand->add_option("--output", replay.outputDir)->required();

    ImportOptions import;
    CLI::App* importCommand = command(*app.add_subcommand("import"), Command::import);
    importCommand->add_option("FILE", import.files)->required();
    importCommand->add_option("--to", import.folder)->required();

    InfoOptions info;
    CLI::App* infoCommand = command(*app.add_subcommand("info"), Command::info);
    infoCommand->add_option("FILE", info.files)->required();
    infoCommand->add_flag("--json", info.json);

    // The command whose help a mistake points at: the one being parsed.
    const auto parsedCommand = [&] {
        for (const auto& [parsed, which] : commands)
            if (which != Command::help && parsed->parsed())
                return which;
        return Command::help;
    };

    // CLI11 takes the arguments last first.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    CliArguments result;
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        // A request for help wins over whatever else is wrong with the line.
        if (helpOf) {
            result.helpOf = *helpOf;
            return result;
        }
        return UsageError{describeParseError(error), parsedCommand()};
    }
    if (helpOf) {
        result.helpOf = *helpOf;
        return result;
    }
    for (const auto& [parsed, which] : commands) {
        for (const std::string& extra : parsed->remaining()) {
            if (extra.starts_with("-"))
                return UsageError{"unknown option " + model::quoted(extra.substr(0, extra.find('='))), which};
            return UsageError{"unexpected argument " + model::quoted(extra), which};
        }
    }
    if (version) {
        result.command = Command::version;
        return result;
    }
    if (generate->parsed()) {
        result.command = Command::generate;
        for (const GenerateOption& option : generateOptions)
            for (const std::string& text : typed[option.name])
                if (auto problem = option.apply(result.generate, text))
                    return UsageError{*problem, Command::generate};
        return result;
    }
    if (replayCommand->parsed()) {
        if (replay.outputDir.empty())
            return UsageError{"--output needs a folder", Command::replay};
        result.command = Command::replay;
        result.replay = replay;
        return result;
    }
    if (importCommand->parsed()) {
        if (import.folder.empty())
            return UsageError{"--to needs a folder", Command::import};
        result.command = Command::import;
        result.import = import;
        return result;
    }
    if (infoCommand->parsed()) {
        result.command = Command::info;
        result.info = info;
        return result;
    }
    return UsageError{"no command given", Command::help};
}

std::string usageText(CliArguments::Command command) {
    using Command = CliArguments::Command;
    std::string text = "Usage:\n";
    switch (command) {
    case Command::generate: {
        std::string synopsis = "  marquetry-cli generate";
        std::size_t lineStart = 0;
        for (const GenerateOption& option : generateOptions) {
            const bool required = std::string_view(option.name) == "--source"
                                  || std::string_view(option.name) == "--output";
            std::string word = std::string(required ? "" : "[") + option.name
                               + (option.value != nullptr ? std::string(" ") + option.value : "") + (required ? "" : "]")
                               + (option.repeatable ? "..." : "");
            if (synopsis.size() - lineStart + 1 + word.size() > 98) {
                synopsis += "\n" + std::string(25, ' ');
                lineStart = synopsis.size() - 25;
                synopsis += word;
            } else {
                synopsis += " " + word;
            }
        }
        text += synopsis + "\n\nCuts a drum loop into slices, re-sequences them into new breaks and writes\n"
                "the picked ones as WAV files, exactly as the window's Export Selected does.\n\n";
        for (const GenerateOption& option : generateOptions)
            text += optionLines(std::string(option.name) + (option.value != nullptr ? std::string(" ") + option.value : ""),
                                optionHelp(option));
        text += "\nThe seed a run used is printed on standard error.\n";
        return text;
    }
    case Command::replay:
        return text + "  marquetry-cli replay MANIFEST --output DIR\n\n"
               + optionLines("MANIFEST", "a manifest written by generate --manifest or the window")
               + optionLines("--output DIR", "folder to write into, created when missing")
               + "\nRuns the manifest's settings again and writes the same files, byte for byte,\n"
                 "tags and slice kit (into DIR/kit) included; refused, writing nothing, when a\n"
                 "source has changed or a file would not come out as the manifest records it.\n";
    case Command::import:
        return text + "  marquetry-cli import FILE... --to DIR\n\n"
               + optionLines("FILE...", "audio files of any common format (FLAC, AIFF, MP3, Ogg,\n24-bit WAV, ...)")
               + optionLines("--to DIR", "the folder to put the plain WAV loops in; an existing\nfile is never replaced");
    case Command::info:
        return text + "  marquetry-cli info FILE... [--json]\n\n"
               + optionLines("FILE...", "WAV files to describe: format, length, tempo and bars, or\nwhy the reader "
                                        "refuses one")
               + optionLines("--json", "print a JSON array instead");
    case Command::help:
    case Command::version: break;
    }
    return usageText();
}

std::string usageText() {
    using Command = CliArguments::Command;
    std::string text = usageText(Command::generate);
    text.insert(text.find("\n\n"), "\n  marquetry-cli replay MANIFEST --output DIR\n"
                                   "  marquetry-cli import FILE... --to DIR\n"
                                   "  marquetry-cli info FILE... [--json]\n"
                                   "  marquetry-cli --help | --version\n"
                                   "  marquetry-cli COMMAND --help");
    text.replace(text.rfind("\nThe seed a run used"), std::string::npos,
                 optionLines("replay MANIFEST", "run a manifest's settings again and write the same files,\nbyte "
                                                "for byte, tags and slice kit (into DIR/kit) included;\nrefused when "
                                                "a source has changed")
                     + optionLines("import FILE...", "convert audio files of any common format (FLAC, AIFF, MP3,\n"
                                                     "Ogg, 24-bit WAV, ...) into plain WAV loops in the folder\n"
                                                     "given by --to; an existing file is never replaced")
                     + optionLines("info FILE...", "print each WAV file's format, length, tempo and bars, or\nwhy the "
                                                   "reader refuses it; --json prints a JSON array")
                     + optionLines("--help", "show this text (COMMAND --help: that command's)")
                     + optionLines("--version", "show the version")
                     + "\nThe seed a run used is printed on standard error.\n");
    return text;
}

int reportUsageError(std::ostream& err, const std::string& message, CliArguments::Command command) {
    using Command = CliArguments::Command;
    const char* word = command == Command::generate ? "generate "
                       : command == Command::replay ? "replay "
                       : command == Command::import ? "import "
                       : command == Command::info   ? "info "
                                                    : "";
    err << "marquetry-cli: " << message << "\nRun 'marquetry-cli " << word << "--help' for usage.\n";
    return exitUsage;
}

} // namespace marquetry::cli
