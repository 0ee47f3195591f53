#include "morvane/app/media/media_bin_entry.hpp"

#include <array>
#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::app {

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 23> kAllowedExtensions{
    "mp4", "mov", "m4v", "m4a",  "aac",  "wav",  "aiff", "aif", "mp3",  "caf", "mkv", "webm",
    "avi", "png", "jpg", "jpeg", "heic", "heif", "gif",  "tif", "tiff", "bmp", "webp"};

}  // namespace

bool MediaPathGuard::isAllowedExtension(std::string_view extension) {
    const std::string lowered = intelligence::lowercased(extension);
    return std::find(kAllowedExtensions.begin(), kAllowedExtensions.end(), lowered) !=
           kAllowedExtensions.end();
}

fs::path MediaPathGuard::standardized(const fs::path& path) {
    std::error_code error;
    fs::path resolved = fs::weakly_canonical(path, error);
    return error ? path.lexically_normal() : resolved;
}

bool MediaPathGuard::isInside(const fs::path& path, const fs::path& root) {
    const std::string p = path.generic_string();
    std::string r = root.generic_string();
    if (p == r) return true;
    if (!r.ends_with('/')) r += '/';
    return p.starts_with(r);
}

void MediaPathGuard::requireRegularMediaFile(const fs::path& file, bool mustExist) {
    std::string extension = file.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    if (!isAllowedExtension(extension)) throw EnginePathError("Unsupported media type.");
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    if (!fs::exists(status)) {
        if (mustExist) throw EnginePathError("Media file is missing.");
        return;
    }
    if (fs::is_directory(status)) throw EnginePathError("Media path cannot be a directory.");
    if (fs::is_symlink(status)) throw EnginePathError("Symbolic links are not allowed in project media.");
    if (!fs::is_regular_file(status)) throw EnginePathError("Media path must be a regular file.");
}

fs::path MediaPathGuard::resolve(std::string_view path, const fs::path& bundle) {
    const std::string_view trimmed = trimWhitespaceAndNewlines(path);
    if (trimmed.empty()) throw EnginePathError("Empty media path.");
    if (trimmed.find('\0') != std::string_view::npos || trimmed.find("..") != std::string_view::npos) {
        throw EnginePathError("Media path is not allowed.");
    }
    fs::path candidate;
    if (trimmed.starts_with("file://")) {
        const auto file = pathFromFileURL(trimmed);
        if (!file) throw EnginePathError("Invalid file URL.");
        candidate = *file;
    } else if (trimmed.starts_with('/')) {
        candidate = fs::path(trimmed);
    } else {
        candidate = bundle / fs::path(trimmed);
    }
    candidate = standardized(candidate);
    const fs::path root = standardized(bundle);
    std::error_code error;
    const bool exists = fs::exists(fs::symlink_status(candidate, error));
    const bool inBundle = isInside(candidate, root / "Media") || isInside(candidate, root);
    if (!exists && !inBundle) throw EnginePathError("Media file is missing.");
    requireRegularMediaFile(candidate, false);
    return candidate;
}

fs::path MediaBinEntry::resolvedURL(const std::optional<fs::path>& bundle) const {
    if (bundle) {
        try {
            return MediaPathGuard::resolve(urlPath, *bundle);
        } catch (const EnginePathError&) {
            return *bundle / "Media" / ".rejected";
        }
    }
    if (urlPath.starts_with("file://")) {
        if (auto file = pathFromFileURL(urlPath)) return *file;
    }
    return fs::path(urlPath);
}

std::string MediaBinEntry::storedPath(const fs::path& file, const std::optional<fs::path>& bundle) {
    const fs::path absolute = MediaPathGuard::standardized(file);
    if (bundle) {
        const fs::path root = MediaPathGuard::standardized(*bundle);
        if (MediaPathGuard::isInside(absolute, root))
            return absolute.lexically_relative(root).generic_string();
    }
    return absolute.string();
}

void to_json(Json& json, const MediaBinEntry& entry) {
    json = Json::object();
    json["id"] = entry.id;
    json["label"] = entry.label;
    json["urlPath"] = entry.urlPath;
    json["kind"] = kMediaBinKindNames.text(entry.kind);
    json["durationSeconds"] = entry.durationSeconds;
    json["hasVideo"] = entry.hasVideo;
    json["hasAudio"] = entry.hasAudio;
}

void fromJson(const JsonReader& reader, MediaBinEntry& entry) {
    entry.id = reader["id"].get<std::string>();
    entry.label = reader["label"].get<std::string>();
    entry.urlPath = reader["urlPath"].get<std::string>();
    entry.kind = readCase(reader["kind"], kMediaBinKindNames);
    entry.durationSeconds = reader["durationSeconds"].get<double>();
    entry.hasVideo = reader["hasVideo"].get<bool>();
    entry.hasAudio = reader["hasAudio"].get<bool>();
}

}  // namespace morvane::app
