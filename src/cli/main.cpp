#include "cli/CliArguments.hpp"
#include "cli/GenerateCommand.hpp"

#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <variant>
#include <vector>

int main(int argc, char** argv) {
    using namespace marquetry::cli;
    // A reader that stops early (`| head -1`) must not kill an export half way.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const auto parsed = parseArguments(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
        if (const auto* message = std::get_if<std::string>(&parsed))
            return reportUsageError(std::cerr, *message);
        const CliArguments& arguments = std::get<CliArguments>(parsed);
        switch (arguments.command) {
        case CliArguments::Command::help:
            std::cout << usageText();
            return exitSuccess;
        case CliArguments::Command::version:
            std::cout << "marquetry-cli " << MARQUETRY_VERSION << '\n';
            return exitSuccess;
        case CliArguments::Command::generate:
            return runGenerate(arguments.generate, std::cout, std::cerr);
        }
    } catch (const std::exception& error) {
        // The model reports through its status line; this catches only the
        // platform's own failures, such as a thread that cannot be started.
        std::cerr << "marquetry-cli: " << error.what() << '\n';
    }
    return exitFailure;
}
