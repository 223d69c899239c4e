#include "cli/Cli.hpp"

#include "cli/CliArguments.hpp"
#include "cli/Commands.hpp"
#include "model/ErrorText.hpp"

#include <exception>
#include <variant>

namespace marquetry::cli {

int runCli(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    try {
        const auto parsed = parseArguments(arguments);
        if (const auto* mistake = std::get_if<UsageError>(&parsed))
            return reportUsageError(err, mistake->message, mistake->command);
        const CliArguments& request = std::get<CliArguments>(parsed);
        switch (request.command) {
        case CliArguments::Command::help: out << usageText(request.helpOf); return exitSuccess;
        case CliArguments::Command::version: out << "marquetry-cli " << MARQUETRY_VERSION << '\n'; return exitSuccess;
        case CliArguments::Command::generate: return runGenerate(request.generate, out, err);
        case CliArguments::Command::replay: return runReplay(request.replay, out, err);
        case CliArguments::Command::import: return runImport(request.import, out, err);
        case CliArguments::Command::info: return runInfo(request.info, out, err);
        }
    } catch (const std::exception& error) {
        // Every command reports its own failures; this catches only the
        // platform's, such as a thread that cannot be started.
        err << "marquetry-cli: " << model::describe(error) << '\n';
    }
    return exitFailure;
}

} // namespace marquetry::cli
