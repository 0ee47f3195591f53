#include "morvane/engine/support/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>

extern char** environ;

namespace morvane {
namespace {

constexpr int kPollMilliseconds = 100;
constexpr auto kTermGrace = std::chrono::seconds(2);

[[noreturn]] void failStart(int error, const std::string& program) {
    throw std::system_error(error, std::generic_category(), "Could not start " + program);
}

// A pipe whose ends close with it; the child's copies are made by dup2, so both ends are close-on-exec.
struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void closeEnd(int i) {
        if (ends[i] >= 0) close(ends[i]);
        ends[i] = -1;
    }
};

int exitCodeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int waitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return exitCodeOf(status);
}

// Ends the child's whole group: politely first, then for good.
void terminateGroup(pid_t pid) {
    kill(-pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kTermGrace;
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            kill(-pid, SIGKILL);  // whatever it started goes too
            return;
        }
        usleep(20'000);
    }
    kill(-pid, SIGKILL);
    waitFor(pid);
}

// Hands complete lines of `pending` to `onLine`, keeping an unfinished tail.
void emitLines(std::string& pending, const std::function<void(std::string_view)>& onLine) {
    std::size_t start = 0;
    for (std::size_t newline = pending.find('\n'); newline != std::string::npos;
         newline = pending.find('\n', start)) {
        std::string_view line(pending.data() + start, newline - start);
        if (line.ends_with('\r')) line.remove_suffix(1);
        onLine(line);
        start = newline + 1;
    }
    pending.erase(0, start);
}

}  // namespace

ChildProcessResult runChildProcess(const std::vector<std::string>& argv, const ChildProcessOptions& options,
                                   std::stop_token stop) {
    throwIfStopRequested(stop);
    if (argv.empty()) failStart(EINVAL, "(nothing)");
    Pipe out;
    Pipe err;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);

    // The caller may block SIGINT and SIGTERM to turn them into a stop; the child must still die of them.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);

    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, args[0], &actions, &attributes, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    out.closeEnd(1);
    err.closeEnd(1);
    if (spawned != 0) failStart(spawned, argv.front());

    ChildProcessResult result;
    std::array<pollfd, 2> fds{{{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}}};
    std::string* sinks[2] = {&result.out, &result.err};
    std::string pendingLine;
    int open = 2;
    char buffer[4096];
    while (open > 0) {
        if (stop.stop_requested()) {
            terminateGroup(pid);
            throw OperationCancelled();
        }
        const int ready = poll(fds.data(), fds.size(), kPollMilliseconds);
        if (ready < 0 && errno != EINTR) break;
        if (ready <= 0) continue;
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                fds[i].fd = -1;
                --open;
                continue;
            }
            sinks[i]->append(buffer, static_cast<std::size_t>(n));
            if (i == 1 && options.onErrorLine) {
                pendingLine.append(buffer, static_cast<std::size_t>(n));
                emitLines(pendingLine, options.onErrorLine);
            }
        }
    }
    if (options.onErrorLine && !pendingLine.empty()) options.onErrorLine(pendingLine);
    // Both pipes are closed: the child is exiting or gone, but it may still have to be stopped.
    while (!stop.stop_requested()) {
        int status = 0;
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            result.exitCode = exitCodeOf(status);
            return result;
        }
        if (done < 0 && errno != EINTR) return result;
        usleep(10'000);
    }
    terminateGroup(pid);
    throw OperationCancelled();
}

std::optional<std::filesystem::path> findExecutable(std::string_view name) {
    const auto executable = [](const std::filesystem::path& path) {
        struct stat info {};
        return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
    };
    if (name.empty()) return std::nullopt;
    if (name.find('/') != std::string_view::npos) {
        std::filesystem::path path(name);
        if (executable(path)) return path;
        return std::nullopt;
    }
    const char* variable = std::getenv("PATH");
    std::string_view folders = variable != nullptr ? variable : "/usr/local/bin:/usr/bin:/bin";
    while (!folders.empty()) {
        const std::size_t colon = folders.find(':');
        const std::string_view folder = folders.substr(0, colon);
        folders = colon == std::string_view::npos ? std::string_view() : folders.substr(colon + 1);
        std::filesystem::path candidate = std::filesystem::path(folder.empty() ? "." : folder) / name;
        if (executable(candidate)) return candidate;
    }
    return std::nullopt;
}

}  // namespace morvane
