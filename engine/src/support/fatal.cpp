#include "morvane/engine/support/fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace morvane::detail {

void fatal(const char* file, int line, std::string_view message) noexcept {
    std::fprintf(stderr, "morvane: fatal error at %s:%d: %.*s\n", file, line,
                 static_cast<int>(message.size()), message.data());
    std::fflush(stderr);
    std::abort();
}

}  // namespace morvane::detail
