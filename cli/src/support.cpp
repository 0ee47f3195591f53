#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli.hpp"
#include "morvane/engine/engine_error.hpp"

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

std::string readFile(const std::filesystem::path& path) {
    std::error_code ignored;
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, ignored))
        throw engine::EngineError::missingFile(path.string());
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

}  // namespace morvane::cli
