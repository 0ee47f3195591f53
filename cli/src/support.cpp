#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/support/files.hpp"

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

engine::EditPlan readPlanFile(const std::string& path) {
    using namespace morvane::engine;
    EditPlan plan = EditPlanCoding::decode(readWholeFile(path), path);
    EditPlanResolver::checkTimes(plan, path);
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    return EditPlanCoding::resolveSourceURLs(std::move(plan), folder.empty() ? "." : folder);
}

engine::ExportVideoCodec exportCodec(const std::string& option, const std::filesystem::path& output) {
    using engine::ExportVideoCodec;
    if (option == "prores") return ExportVideoCodec::proRes422;
    std::string extension = output.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (option == "h264" && extension == ".gif") return ExportVideoCodec::gif;
    return engine::kExportVideoCodecNames.parse(option).value_or(ExportVideoCodec::h264);
}

}  // namespace morvane::cli
