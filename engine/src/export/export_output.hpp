#pragma once

// The file an export writes, made ready the same way by every exporter.

#include <filesystem>

namespace morvane::engine {

/// Clears the way for `to`: an old file of that name goes, its folder is made. Throws
/// `EngineError::exportFailed` naming what couldn't be done.
void prepareOutput(const std::filesystem::path& to);

}  // namespace morvane::engine
