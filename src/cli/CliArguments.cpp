#include "cli/CliArguments.hpp"

#include "chop/JoinFades.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/FileSystem.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
    return result;
}

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
        if (lowercase(chop::label(model)) == lowercase(text))
            return model;
    return std::nullopt;
}

std::optional<std::vector<std::int64_t>> parsePicks(std::string_view text) {
    if (lowercase(text) == "all")
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

std::string inQuotes(const std::string& text) {
    return "'" + text + "'";
}

// The values as typed; CLI11 decides which options exist, how often they
// may come and in which forms, and the checks below turn text into values.
struct TypedGenerate {
    std::string source;
    std::vector<std::string> mashup;
    std::vector<std::string> tempos;
    std::optional<std::string> slices, variations, model, seed, glitch, pick, manifest, joinFade, fit, kit;
    bool matchFormats = false;
    bool matchTempo = false;
    std::string output;
    bool keepExisting = false;
    bool tags = false;
};

CLI::Option* valueOption(CLI::App& command, const std::string& name, std::optional<std::string>& value) {
    return command.add_option_function<std::string>(name, [&value](const std::string& text) { value = text; });
}

std::optional<std::string> convert(const TypedGenerate& typed, GenerateOptions& options) {
    const auto malformed = [](const std::string& name, const std::string& value, const std::string& expected) {
        return name + " expects " + expected + ", not " + inQuotes(value);
    };
    if (typed.slices && !(options.slices = parseInteger(*typed.slices)))
        return malformed("--slices", *typed.slices, "a whole number");
    if (typed.variations && !(options.versions = parseInteger(*typed.variations)))
        return malformed("--variations", *typed.variations, "a whole number");
    if (typed.model && !(options.chopModel = parseChopModel(*typed.model)))
        return malformed("--model", *typed.model, "one of " + chopModelLabels());
    options.seedText = typed.seed;
    if (typed.glitch && !(options.glitchAmount = parseReal(*typed.glitch)))
        return malformed("--glitch", *typed.glitch, "a finite number");
    if (typed.joinFade) {
        options.joinFadeMs = parseInteger(*typed.joinFade);
        if (!options.joinFadeMs || *options.joinFadeMs < 0 || *options.joinFadeMs > chop::maxJoinFadeMs)
            return malformed("--join-fade", *typed.joinFade,
                             "0 (off) or a whole number of milliseconds from 1 to "
                                 + std::to_string(chop::maxJoinFadeMs));
    }
    if (typed.fit && !(options.fit = chop::parseFitMode(*typed.fit)))
        return malformed("--fit", *typed.fit, "off, trim or stretch");
    for (const std::string& tempo : typed.tempos) {
        const std::size_t equals = tempo.rfind('=');
        const auto file = equals == std::string::npos ? std::nullopt : normalFilePath(tempo.substr(0, equals));
        const auto bpm = equals == std::string::npos ? std::nullopt : parseReal(tempo.substr(equals + 1));
        if (!file || !bpm || *bpm < chop::minTempoBpm || *bpm > chop::maxTempoBpm)
            return malformed("--tempo", tempo, "FILE=BPM with a tempo from 20 to 999");
        options.tempos[*file] = *bpm;
    }
    options.matchFormats = typed.matchFormats;
    options.matchTempo = typed.matchTempo;
    if (typed.pick) {
        const auto picks = parsePicks(*typed.pick);
        if (!picks)
            return malformed("--pick", *typed.pick, "'all' or variation numbers from 1, such as 1,3,5");
        options.picks = *picks;
    }
    if (typed.output.empty())
        return std::string("--output needs a folder");
    options.outputDir = typed.output;
    options.manifestPath = typed.manifest;
    options.keepExisting = typed.keepExisting;
    options.tags = typed.tags;
    if (typed.kit && typed.kit->empty())
        return std::string("--kit needs a folder");
    options.kitDir = typed.kit;

    const auto source = normalFilePath(typed.source);
    if (!source)
        return "--source needs a file, not " + inQuotes(typed.source);
    options.sourceFile = *source;
    const fs::path sourceFolder = model::pathFromText(*source).parent_path();
    for (const std::string& file : typed.mashup) {
        const auto member = normalFilePath(file);
        if (!member)
            return "--mashup needs a file, not " + inQuotes(file);
        // The window can only check files it lists, which are the source
        // folder's; the command line offers no more than that.
        if (model::pathFromText(*member).parent_path() != sourceFolder)
            return "--mashup file " + inQuotes(file) + " is not in the source folder "
                   + inQuotes(model::pathText(sourceFolder));
        options.mashupFiles.push_back(*member);
    }
    return std::nullopt;
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

std::variant<CliArguments, std::string> parseArguments(const std::vector<std::string>& arguments) {
    if (arguments.empty())
        return std::string("no command given");

    // Help is ours, not CLI11's: one usage text for every command. Left-over
    // words are reported in the program's own terms, below.
    bool help = false;
    bool version = false;
    CLI::App app("marquetry-cli", "marquetry-cli");
    std::vector<CLI::App*> commands{&app};
    const auto command = [&](CLI::App& parent) {
        parent.set_help_flag();
        parent.add_flag("-h,--help", help);
        parent.allow_extras();
        return &parent;
    };
    command(app);
    app.require_subcommand(0, 1);
    app.add_flag("--version", version);

    TypedGenerate typed;
    CLI::App* generate = commands.emplace_back(command(*app.add_subcommand("generate")));
    generate->add_option("--source", typed.source)->required();
    generate->add_option("--mashup", typed.mashup)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    for (const auto& [name, value] : {std::pair("--slices", &typed.slices), {"--variations", &typed.variations},
                                      {"--model", &typed.model}, {"--seed", &typed.seed}, {"--glitch", &typed.glitch},
                                      {"--pick", &typed.pick}, {"--manifest", &typed.manifest},
                                      {"--join-fade", &typed.joinFade}, {"--fit", &typed.fit},
                                      {"--kit", &typed.kit}})
        valueOption(*generate, name, *value);
    generate->add_flag("--match-formats", typed.matchFormats);
    generate->add_flag("--match-tempo", typed.matchTempo);
    generate->add_option("--tempo", typed.tempos)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    generate->add_option("--output", typed.output)->required();
    generate->add_flag("--keep-existing", typed.keepExisting);
    generate->add_flag("--tags", typed.tags);

    ReplayOptions replay;
    CLI::App* replayCommand = commands.emplace_back(command(*app.add_subcommand("replay")));
    replayCommand->add_option("MANIFEST", replay.manifestPath)->required();
    replayCommand->add_option("--output", replay.outputDir)->required();

    ImportOptions import;
    CLI::App* importCommand = commands.emplace_back(command(*app.add_subcommand("import")));
    importCommand->add_option("FILE", import.files)->required();
    importCommand->add_option("--to", import.folder)->required();

    InfoOptions info;
    CLI::App* infoCommand = commands.emplace_back(command(*app.add_subcommand("info")));
    infoCommand->add_option("FILE", info.files)->required();
    infoCommand->add_flag("--json", info.json);

    // CLI11 takes the arguments last first.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    CliArguments result;
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        // A request for help wins over whatever else is wrong with the line.
        if (help)
            return result;
        return describeParseError(error);
    }
    if (help)
        return result;
    for (const CLI::App* parsed : commands) {
        for (const std::string& extra : parsed->remaining()) {
            if (extra.starts_with("-"))
                return "unknown option " + inQuotes(extra.substr(0, extra.find('=')));
            return "unexpected argument " + inQuotes(extra);
        }
    }
    if (version) {
        result.command = CliArguments::Command::version;
        return result;
    }
    if (generate->parsed()) {
        result.command = CliArguments::Command::generate;
        if (auto problem = convert(typed, result.generate))
            return *problem;
        return result;
    }
    if (replayCommand->parsed()) {
        if (replay.outputDir.empty())
            return std::string("--output needs a folder");
        result.command = CliArguments::Command::replay;
        result.replay = replay;
        return result;
    }
    if (importCommand->parsed()) {
        if (import.folder.empty())
            return std::string("--to needs a folder");
        result.command = CliArguments::Command::import;
        result.import = import;
        return result;
    }
    if (infoCommand->parsed()) {
        result.command = CliArguments::Command::info;
        result.info = info;
        return result;
    }
    return std::string("no command given");
}

std::string usageText() {
    return "Usage:\n"
           "  marquetry-cli generate --source FILE [--mashup FILE]... [--slices N] [--variations N]\n"
           "                         [--model NAME] [--seed TEXT] [--glitch X] --output DIR [--pick LIST]\n"
           "                         [--manifest FILE] [--join-fade MS] [--fit MODE] [--keep-existing]\n"
           "                         [--match-formats] [--match-tempo] [--tempo FILE=BPM]...\n"
           "                         [--tags] [--kit DIR]\n"
           "  marquetry-cli replay MANIFEST --output DIR\n"
           "  marquetry-cli import FILE... --to DIR\n"
           "  marquetry-cli info FILE... [--json]\n"
           "  marquetry-cli --help | --version\n"
           "\n"
           "Cuts a drum loop into slices, re-sequences them into new breaks and writes\n"
           "the picked ones as WAV files, exactly as the window's Export Selected does.\n"
           "\n"
           "  --source FILE    the loop to chop; its folder is the source folder\n"
           "  --mashup FILE    pool this loop of the source folder too (repeatable);\n"
           "                   Mashup Mode is on exactly when one is given\n"
           "  --slices N       slices per source (default 16, at least 4)\n"
           "  --variations N   how many breaks to generate (default 10)\n"
           "  --model NAME     chop model, any letter case (default Grid):\n"
           "                   " + chopModelLabels() + "\n"
           "  --seed TEXT      a whole number; the same seed gives the same breaks\n"
           "                   (default blank: the clock's second seeds the run)\n"
           "  --glitch X       effect amount of the Glitch model (default 0.55)\n"
           "  --join-fade MS   fade every join and the loop seam over MS milliseconds\n"
           "                   (1 to " + std::to_string(chop::maxJoinFadeMs) + ") so slices meet without a click (default 0: off)\n"
           "  --fit MODE       bring every break to the length of the --source loop, so it\n"
           "                   sits on the bar grid: off (default), trim (cut, or pad with\n"
           "                   silence) or stretch (change its tempo, keep its pitch)\n"
           "  --match-formats  convert the --mashup loops to the --source loop's format\n"
           "                   (channels, bit depth, sample rate) before slicing\n"
           "  --match-tempo    stretch the --mashup loops to the --source loop's tempo\n"
           "                   before slicing\n"
           "  --tempo FILE=BPM the tempo of a loop, over its estimate (20 to 999;\n"
           "                   repeatable); marquetry-cli info shows the estimates\n"
           "  --output DIR     folder to write into, created when missing\n"
           "  --pick LIST      breaks to write, such as 1,3,5, or all (default all)\n"
           "  --manifest FILE  also write a JSON manifest of the run: settings, the seed\n"
           "                   used, the sources' and files' SHA-256, every slice placed\n"
           "  --keep-existing  never replace a file: write NAME-2.wav, NAME-3.wav, ...\n"
           "                   beside it instead (default: replace it)\n"
           "  --tags           write the loop's tempo, beats, a loop over the whole file\n"
           "                   and a marker at every slice into each file (needs a known\n"
           "                   tempo, 20 to 999 BPM; see info and --tempo)\n"
           "  --kit DIR        also write a slice kit into DIR: one WAV per slice used,\n"
           "                   an SFZ instrument (slice 1 on note 36 upward) and a MIDI\n"
           "                   file per break that plays it from the kit\n"
           "  replay MANIFEST  run a manifest's settings again and write the same files,\n"
           "                   byte for byte, tags and slice kit (into DIR/kit) included;\n"
           "                   refused when a source has changed\n"
           "  import FILE...   convert audio files of any common format (FLAC, AIFF, MP3,\n"
           "                   Ogg, 24-bit WAV, ...) into plain WAV loops in the folder\n"
           "                   given by --to; an existing file is never replaced\n"
           "  info FILE...     print each WAV file's format, length, tempo and bars, or\n"
           "                   why the reader refuses it; --json prints a JSON array\n"
           "  --help           show this text\n"
           "  --version        show the version\n"
           "\n"
           "The seed a run used is printed on standard error.\n";
}

int reportUsageError(std::ostream& err, const std::string& message) {
    err << "marquetry-cli: " << message << "\n\n" << usageText();
    return exitUsage;
}

} // namespace marquetry::cli
