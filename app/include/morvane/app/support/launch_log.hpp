#pragma once

/// Morvane's one log file, "launch.log" in $XDG_DATA_HOME/Morvane: what went wrong where nobody was
/// watching (an autosave, a project that wouldn't open), one line each, stamped in ISO 8601, no levels.
///
///     LaunchLog::append("Autosave failed: Missing file: /home/me/talk.mp4");
///     // 2026-11-22T09:30:00Z Autosave failed: Missing file: /home/me/talk.mp4

#include <filesystem>
#include <string_view>

namespace morvane::app::LaunchLog {

/// $XDG_DATA_HOME/Morvane/launch.log.
[[nodiscard]] std::filesystem::path path();

/// Appends `line` (new lines folded into blanks) with the time. Never throws: a log that can't be written
/// is no reason to fail the work it reports on.
void append(std::string_view line) noexcept;

}  // namespace morvane::app::LaunchLog
