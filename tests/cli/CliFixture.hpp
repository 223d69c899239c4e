#pragma once

// A temporary folder with a source folder of real drum breaks, and the
// command line run on it in process.

#include "cli/Cli.hpp"

#include "support/TestFiles.hpp"
#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

namespace marquetry::cli {

namespace fs = std::filesystem;
using audio::test::folderContents;
using audio::test::readText;

struct Outcome {
    int exitCode = -1;
    std::string out, err;
};

class CliFixture : public ::testing::Test {
protected:
    CliFixture() { fs::create_directories(source()); }

    fs::path source() const { return root / "source"; }
    std::string at(const std::string& relative) const { return (root / relative).string(); }

    void copyLoops(std::initializer_list<const char*> names) const {
        for (const char* name : names)
            fs::copy_file(audio::test::testLoopPath(name), source() / name);
    }

    Outcome run(const std::vector<std::string>& arguments) const {
        std::ostringstream out, err;
        const int code = runCli(arguments, out, err);
        return {code, out.str(), err.str()};
    }

    const audio::test::TemporaryFolder temporary;
    const fs::path root = temporary.path;
};

} // namespace marquetry::cli
