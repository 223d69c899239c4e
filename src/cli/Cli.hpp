#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace marquetry::cli {

/// The whole command line: parses `arguments` (those after the program
/// name), runs the command and returns the exit status. Normal output goes
/// to `out`, errors, usage and the seed of a run to `err`. Never throws.
int runCli(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

} // namespace marquetry::cli
