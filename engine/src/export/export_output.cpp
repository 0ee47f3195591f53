#include "export/export_output.hpp"

#include <fmt/core.h>

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

std::filesystem::path folderOf(const std::filesystem::path& file) {
    return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

}  // namespace

void prepareOutput(const std::filesystem::path& to) {
    std::error_code error;
    // Nothing there (or a file where a folder should be, which the folder's creation reports) is fine.
    if (!std::filesystem::remove(to, error) && error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory)
        throw EngineError::exportFailed(fmt::format("Could not remove {}: {}", to.string(), error.message()));
    std::filesystem::create_directories(folderOf(to), error);
    if (error)
        throw EngineError::exportFailed(
            fmt::format("Could not create the folder {}: {}", folderOf(to).string(), error.message()));
}

}  // namespace morvane::engine
