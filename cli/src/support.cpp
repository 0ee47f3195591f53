#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "cli.hpp"

namespace morvane::cli {

void printJson(const Json& json) {
    const std::string text = dumpJson(json, 2);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

std::filesystem::path samplesDir() {
    if (const char* dir = std::getenv("MORVANE_SAMPLES_DIR"); dir != nullptr && *dir != '\0') return dir;
    return MORVANE_SAMPLES_DIR;
}

}  // namespace morvane::cli
