#pragma once

/// Files that must never be left half-written, and the folders Morvane keeps its own files in.
///
///     writeFileAtomically(bundle / "project.json", text);   // the old file survives any failure
///     auto prefs = configDirectory() / "preferences.json";   // ~/.config/morvane/preferences.json

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace morvane {

/// Replaces `path` with `contents`: a temporary "morvane-*.tmp" file in the same folder is written,
/// flushed to disk and renamed over `path`, so readers see the old file or the new one, never a mix.
/// Creates the folder if needed. Throws `std::filesystem::filesystem_error` with the OS's reason.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents);

/// A fresh name beside `path` for a file written in full before it takes `path`'s place:
/// "morvane-<8 hexadecimal digits>.partial" followed by `path`'s extension, in `path`'s folder.
[[nodiscard]] std::filesystem::path partialFileBeside(const std::filesystem::path& path);

/// The whole of a file. Throws `EngineError::missingFile` when it doesn't exist or isn't a regular file,
/// and `std::filesystem::filesystem_error` when it can't be read.
[[nodiscard]] std::string readWholeFile(const std::filesystem::path& path);

/// `absolute` as a "file://" URL, with every byte outside RFC 3986's unreserved characters, sub-delims,
/// ":", "@" and "/" percent-encoded: "/home/me/My Talk.mov" is "file:///home/me/My%20Talk.mov".
[[nodiscard]] std::string fileURL(const std::filesystem::path& absolute);

/// The path of a "file://" URL (percent-decoded; "file://localhost/..." accepted), or of a plain absolute
/// path given as it is. Nothing for other schemes, relative paths and malformed escapes.
[[nodiscard]] std::optional<std::filesystem::path> pathFromFileURL(std::string_view url);

/// $XDG_CONFIG_HOME/morvane (default ~/.config/morvane): preferences.
[[nodiscard]] std::filesystem::path configDirectory();
/// $XDG_DATA_HOME/Morvane (default ~/.local/share/Morvane): voice styles, launch.log, models.
[[nodiscard]] std::filesystem::path dataDirectory();
/// $XDG_CACHE_HOME/Morvane (default ~/.cache/Morvane): disposable media caches.
[[nodiscard]] std::filesystem::path cacheDirectory();
/// The user's documents folder: $XDG_DOCUMENTS_DIR, else the one named in user-dirs.dirs (as
/// `xdg-user-dir DOCUMENTS` reads it), else ~/Documents.
[[nodiscard]] std::filesystem::path documentsDirectory();

}  // namespace morvane
