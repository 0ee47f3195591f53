#include "morvane/testing/process.hpp"

#include "morvane/engine/support/child_process.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::testing {

ProcessResult runProcess(const std::vector<std::string>& argv) {
    ChildProcessResult result = runChildProcess(argv);
    return {result.exitCode, std::move(result.out), std::move(result.err)};
}

ProcessResult runMorvane(const std::vector<std::string>& args) {
    std::vector<std::string> argv{(binaryDir() / "bin" / "morvane").string()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProcess(argv);
}

}  // namespace morvane::testing
