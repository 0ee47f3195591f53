#include "morvane/engine/support/child_process.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <system_error>
#include <thread>

#include "morvane/engine/support/files.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;

TEST(ChildProcess, capturesWhatTheChildWritesAndHowItEnded) {
    std::vector<std::string> lines;
    const auto result =
        runChildProcess({"/bin/sh", "-c", "echo out; echo first >&2; printf last >&2; exit 3"},
                        {.onErrorLine = [&](std::string_view line) { lines.emplace_back(line); }});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "first\nlast");
    EXPECT_EQ(lines, (std::vector<std::string>{"first", "last"}));  // an unfinished last line still arrives

    EXPECT_EQ(runChildProcess({"/bin/sh", "-c", "kill -TERM $$"}).exitCode, 128 + SIGTERM);
    EXPECT_THROW((void)runChildProcess({"/nonexistent/program"}), std::system_error);
}

TEST(ChildProcess, aStopEndsTheChildAndWhatItStartedEvenWithTheSignalsBlockedHere) {
    const testing::TempDir dir;
    const fs::path heard = dir.path() / "heard";
    const fs::path grandchild = dir.path() / "grandchild";
    // The child notes SIGTERM if it can receive it; the stop must not depend on the caller's signal mask,
    // which the command line blocks to turn Ctrl-C into a stop.
    const std::string script = "trap 'echo term > \"$1\"; exit 0' TERM; sleep 30 & echo $! > \"$2\"; wait";
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &term, &previous);

    std::stop_source stop;
    std::jthread stopper([&] {
        while (!fs::exists(grandchild) || readWholeFile(grandchild).empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        stop.request_stop();
    });
    EXPECT_THROW((void)runChildProcess({"/bin/sh", "-c", script, "sh", heard.string(), grandchild.string()},
                                       {}, stop.get_token()),
                 OperationCancelled);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);

    EXPECT_EQ(readWholeFile(heard), "term\n");
    const pid_t sleeper = std::stoi(readWholeFile(grandchild));
    // The sleep was in the child's group: it got the signal too. It may take a moment to be reaped by init.
    for (int i = 0; i < 200 && kill(sleeper, 0) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_NE(kill(sleeper, 0), 0);
}

TEST(FindExecutable, looksOnThePathAndTakesPathsAsTheyAre) {
    const testing::TempDir dir;
    const fs::path tool = dir.write("morvane-test-tool", "#!/bin/sh\n");
    fs::permissions(tool, fs::perms::owner_all);
    const fs::path plain = dir.write("plain-file", "not a program");
    fs::create_directory(dir.path() / "folder-tool");

    testing::ScopedEnvironment environment;
    environment.set("PATH", ("/nonexistent:" + dir.path().string() + ":/bin").c_str());
    struct Case {
        std::string name;
        std::optional<fs::path> expected;
    };
    const Case cases[] = {
        {"morvane-test-tool", tool},  // the first folder of PATH that has it
        {"sh", fs::path("/bin/sh")},
        {tool.string(), tool},
        {"plain-file", std::nullopt},                       // not executable
        {"folder-tool", std::nullopt},                      // a folder
        {(dir.path() / "missing").string(), std::nullopt},  // a path is never looked up on PATH
        {"", std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(findExecutable(c.name), c.expected) << c.name;
}

}  // namespace
}  // namespace morvane
