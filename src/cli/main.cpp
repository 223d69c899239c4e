#include "cli/Cli.hpp"

#include <csignal>
#include <iostream>

int main(int argc, char** argv) {
#if defined(SIGPIPE)
    // A reader that stops early (`| head -1`) must not kill an export half
    // way: a failed write of a progress line is ignored instead.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    return marquetry::cli::runCli(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), std::cout,
                                  std::cerr);
}
