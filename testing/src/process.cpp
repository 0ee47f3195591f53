#include "morvane/testing/process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "morvane/testing/temp_dir.hpp"

extern char** environ;

namespace morvane::testing {
namespace {

void check(int rc, const char* what) {
    if (rc != 0) throw std::runtime_error(std::string("runProcess: ") + what + " failed");
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv) {
    int outPipe[2];
    int errPipe[2];
    check(pipe2(outPipe, O_CLOEXEC), "pipe");
    check(pipe2(errPipe, O_CLOEXEC), "pipe");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);

    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);

    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (spawned != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        throw std::runtime_error("runProcess: could not start " + argv.front());
    }

    ProcessResult result;
    std::array<pollfd, 2> fds{{{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    char buffer[4096];
    while (open > 0) {
        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

ProcessResult runMorvane(const std::vector<std::string>& args) {
    std::vector<std::string> argv{(binaryDir() / "bin" / "morvane").string()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProcess(argv);
}

}  // namespace morvane::testing
