#pragma once

// How a fuzzer stops the run: a broken promise aborts, with what broke on stderr.

#include <cstdio>
#include <cstdlib>

namespace morvane::fuzz {

[[noreturn]] inline void broken(const char* what) {
    std::fprintf(stderr, "fuzzer: %s\n", what);
    std::abort();
}

inline void check(bool condition, const char* what) {
    if (!condition) broken(what);
}

}  // namespace morvane::fuzz
