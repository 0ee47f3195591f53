#pragma once

#include <string>
#include <vector>

namespace morvane::testing {

struct ProcessResult {
    int exitCode = -1;  ///< the exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

/// Runs `argv` (argv[0] a path) to completion with no stdin, capturing stdout and stderr.
ProcessResult runProcess(const std::vector<std::string>& argv);

/// Runs the built `morvane` command with `args`.
ProcessResult runMorvane(const std::vector<std::string>& args);

}  // namespace morvane::testing
