#include "cli/CliArguments.hpp"

#include "model/FileSystem.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <set>
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

// The model lists a folder as the folder joined with each entry's name, so a
// file only matches an entry when written absolute and without "." or "..".
std::optional<fs::path> normalFilePath(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    std::error_code error;
    const fs::path absolute = fs::absolute(model::pathFromText(text), error);
    if (error)
        return std::nullopt;
    fs::path normal = absolute.lexically_normal();
    if (!normal.has_filename())
        return std::nullopt;
    return normal;
}

std::string inQuotes(const std::string& text) {
    return "'" + text + "'";
}

CliArguments commandOnly(CliArguments::Command command) {
    CliArguments arguments;
    arguments.command = command;
    return arguments;
}

constexpr std::string_view valueOptions[] = {"--source", "--mashup",  "--slices", "--variations", "--model",
                                             "--seed",   "--glitch", "--output", "--pick"};

std::optional<std::string> applyOption(GenerateOptions& options, std::string_view name, const std::string& value) {
    const auto malformed = [&](std::string_view expected) {
        return std::string(name) + " expects " + std::string(expected) + ", not " + inQuotes(value);
    };
    if (name == "--source") {
        options.sourceFile = value;
    } else if (name == "--mashup") {
        options.mashupFiles.push_back(value);
    } else if (name == "--slices" || name == "--variations") {
        const auto number = parseInteger(value);
        if (!number)
            return malformed("a whole number");
        (name == "--slices" ? options.slices : options.variations) = number;
    } else if (name == "--model") {
        options.chopModel = parseChopModel(value);
        if (!options.chopModel)
            return malformed("one of " + chopModelLabels());
    } else if (name == "--seed") {
        options.seedText = value;
    } else if (name == "--glitch") {
        options.glitchAmount = parseReal(value);
        if (!options.glitchAmount)
            return malformed("a finite number");
    } else if (name == "--output") {
        options.outputDir = value;
    } else if (name == "--pick") {
        const auto picks = parsePicks(value);
        if (!picks)
            return malformed("'all' or variation numbers from 1, such as 1,3,5");
        options.picks = *picks;
    }
    return std::nullopt;
}

std::variant<CliArguments, std::string> parseGenerate(const std::vector<std::string>& arguments) {
    CliArguments result = commandOnly(CliArguments::Command::generate);
    GenerateOptions& options = result.generate;
    std::set<std::string, std::less<>> seen;

    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h")
            return commandOnly(CliArguments::Command::help);
        if (!argument.starts_with("--"))
            return "unexpected argument " + inQuotes(argument);

        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        if (std::find(std::begin(valueOptions), std::end(valueOptions), name) == std::end(valueOptions))
            return "unknown option " + inQuotes(name);
        if (name != "--mashup" && !seen.insert(name).second)
            return name + " is given twice";

        std::string value;
        if (equals != std::string::npos)
            value = argument.substr(equals + 1);
        else if (i + 1 < arguments.size())
            value = arguments[++i];
        else
            return name + " needs a value";
        if (auto error = applyOption(options, name, value))
            return *error;
    }

    if (!seen.contains("--source"))
        return "--source is required";
    if (!seen.contains("--output"))
        return "--output is required";
    if (options.outputDir.empty())
        return "--output needs a folder";

    const auto source = normalFilePath(options.sourceFile);
    if (!source)
        return "--source needs a file, not " + inQuotes(options.sourceFile);
    options.sourceFile = model::pathText(*source);
    for (std::string& file : options.mashupFiles) {
        const auto member = normalFilePath(file);
        if (!member)
            return "--mashup needs a file, not " + inQuotes(file);
        // The window can only check files it lists, which are the source
        // folder's; the command line offers no more than that.
        if (member->parent_path() != source->parent_path())
            return "--mashup file " + inQuotes(file) + " is not in the source folder "
                   + inQuotes(model::pathText(source->parent_path()));
        file = model::pathText(*member);
    }
    return result;
}

} // namespace

std::variant<CliArguments, std::string> parseArguments(const std::vector<std::string>& arguments) {
    if (arguments.empty())
        return std::string("no command given");
    const std::string& command = arguments.front();
    if (command == "--help" || command == "-h")
        return commandOnly(CliArguments::Command::help);
    if (command == "--version")
        return commandOnly(CliArguments::Command::version);
    if (command == "generate")
        return parseGenerate(arguments);
    return "unknown command " + inQuotes(command);
}

std::string usageText() {
    return "Usage:\n"
           "  marquetry-cli generate --source FILE [--mashup FILE]... [--slices N] [--variations N]\n"
           "                         [--model NAME] [--seed TEXT] [--glitch X] --output DIR [--pick LIST]\n"
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
           "  --output DIR     folder to write into, created when missing\n"
           "  --pick LIST      breaks to write, such as 1,3,5, or all (default all)\n"
           "  --help           show this text\n"
           "  --version        show the version\n";
}

int reportUsageError(std::ostream& err, const std::string& message) {
    err << "marquetry-cli: " << message << "\n\n" << usageText();
    return exitUsage;
}

} // namespace marquetry::cli
