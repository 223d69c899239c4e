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
        if (const auto* message = std::get_if<std::string>(&parsed))
            return reportUsageError(err, *message);
        const CliArguments& request = std::get<CliArguments>(parsed);
        switch (request.command) {
        case CliArguments::Command::help: out << usageText(); return exitSuccess;
        case CliArguments::Command::version: out << "marquetry-cli " << MARQUETRY_VERSION << '\n'; return exitSuccess;
        case CliArguments::Command::generate: return runGenerate(request.generate, out, err);
        case CliArguments::Command::replay: return runReplay(request.replay, out, err);
        case CliArguments::Command::import: return runImport(request.import, out);
        case CliArguments::Command::info: return runInfo(request.info, out);
        }
    } catch (const std::exception& error) {
        // The model reports through its status line; this catches only the
        // platform's own failures, such as a thread that cannot be started.
        err << "marquetry-cli: " << model::describe(error) << '\n';
    }
    return exitFailure;
}

} // namespace marquetry::cli
