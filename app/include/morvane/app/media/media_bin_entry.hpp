#pragma once

/// The sources of a project: each imported file once, with an id ("src1", "src2"...) that clips and plans
/// name, and the guard that keeps a project's media paths from pointing where they shouldn't.
///
///     MediaBinEntry entry{.id = "src2", .label = "b-roll.mov", .urlPath = "Media/b-roll.mov",
///                         .kind = MediaBinKind::broll, .durationSeconds = 12.5};
///     std::filesystem::path file = entry.resolvedURL(bundle);   // inside the bundle, or an offline path

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::app {

enum class MediaBinKind { primary, broll, audio };
inline constexpr auto kMediaBinKindNames = makeEnumTable<MediaBinKind>({
    {MediaBinKind::primary, "primary"},
    {MediaBinKind::broll, "broll"},
    {MediaBinKind::audio, "audio"},
});

struct MediaBinEntry {
    std::string id;       ///< "src" and a number
    std::string label;    ///< display name, at first the file's name
    std::string urlPath;  ///< relative to the bundle ("Media/talk.mp4"), an absolute path or a "file://" URL
    MediaBinKind kind = MediaBinKind::primary;
    double durationSeconds = 0.0;  ///< 5 for a still image
    bool hasVideo = false;
    bool hasAudio = false;

    /// The file. With a bundle, through `MediaPathGuard::resolve`; a path it refuses becomes
    /// bundle/Media/.rejected, which can't exist, so the entry shows as offline. Without one, a "file://"
    /// URL or a plain path.
    [[nodiscard]] std::filesystem::path resolvedURL(const std::optional<std::filesystem::path>& bundle) const;

    /// How an entry stores `file`: relative to `bundle` when it lies inside it ("Media/talk.mp4"), an
    /// absolute path otherwise.
    [[nodiscard]] static std::string storedPath(const std::filesystem::path& file,
                                                const std::optional<std::filesystem::path>& bundle);

    friend bool operator==(const MediaBinEntry&, const MediaBinEntry&) = default;
};

void to_json(Json& json, const MediaBinEntry& entry);
void fromJson(const JsonReader& reader, MediaBinEntry& entry);

/// A media path the project refuses; `what()` says why ("Media path is not allowed.").
class EnginePathError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

namespace MediaPathGuard {

/// The 23 file extensions a project's media may have, compared in lower case.
[[nodiscard]] bool isAllowedExtension(std::string_view extension);

/// The file a stored media path names, standardized with links resolved. Relative paths are inside the
/// bundle. A missing file is allowed inside the bundle (it is offline), refused elsewhere. Throws
/// `EnginePathError`: "Empty media path.", "Media path is not allowed.", "Invalid file URL.",
/// "Media file is missing.", and the refusals of `requireRegularMediaFile`.
[[nodiscard]] std::filesystem::path resolve(std::string_view path, const std::filesystem::path& bundle);

/// Refuses, in this order: an extension outside the list ("Unsupported media type."), a missing file when
/// it must exist ("Media file is missing."), a folder ("Media path cannot be a directory."), a link
/// ("Symbolic links are not allowed in project media."), anything else not regular ("Media path must be a
/// regular file.").
void requireRegularMediaFile(const std::filesystem::path& file, bool mustExist);

/// `path` standardized: made normal, with the links of the part that exists resolved.
[[nodiscard]] std::filesystem::path standardized(const std::filesystem::path& path);

/// Whether `path` is `root` or lies below it.
[[nodiscard]] bool isInside(const std::filesystem::path& path, const std::filesystem::path& root);

}  // namespace MediaPathGuard

}  // namespace morvane::app
