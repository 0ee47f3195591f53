#pragma once

/// Running another program to its end with its output captured, and stopping it when the user cancels.
///
///     auto program = findExecutable("whisper-cli");
///     auto result = runChildProcess({program->string(), "-f", "talk.wav"},
///                                   {.onErrorLine = [](std::string_view line) { watch(line); }}, stop);
///     if (result.exitCode != 0) report(result.err);
///
/// The child reads nothing (stdin is /dev/null), starts with the default signal dispositions and an empty
/// signal mask whatever the caller blocked, and runs in a process group of its own so that a stop ends it
/// and anything it started.

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/cancellation.hpp"

namespace morvane {

/// What to do with a child's output while it runs.
struct ChildProcessOptions {
    /// Each line the child writes to stderr, without its newline, as it arrives.
    std::function<void(std::string_view line)> onErrorLine;
};

/// How a child ended and what it wrote.
struct ChildProcessResult {
    int exitCode = -1;  ///< the exit status, or 128 + the signal that ended it
    std::string out;    ///< all of stdout
    std::string err;    ///< all of stderr
};

/// Runs `argv` (argv[0] a path) to its end. Throws `std::system_error` when it can't be started, and
/// `OperationCancelled` when `stop` is requested: the child's group is then sent SIGTERM, SIGKILL two
/// seconds later if it is still there, and the child is reaped before the throw.
[[nodiscard]] ChildProcessResult runChildProcess(const std::vector<std::string>& argv,
                                                 const ChildProcessOptions& options = {},
                                                 std::stop_token stop = {});

/// The program `name`: itself when it holds a slash and is an executable file, otherwise the first
/// executable file of that name in the folders of $PATH. Nothing when there is none.
[[nodiscard]] std::optional<std::filesystem::path> findExecutable(std::string_view name);

}  // namespace morvane
