#pragma once

/// Projects on disk: a folder "Name.morvane" holding the manifest "project.json" and a folder "Media" with
/// the media copied in and the cursor tracks beside it. A save never tears the manifest: it is written to a
/// temporary file in the bundle, flushed and renamed over the old one, so a crash or a kill at any moment
/// leaves the previous project or the new one. Opening and saving hold the session's exclusive lock (a job
/// of the kind `projectOpen` or `projectSave`), so no edit slips in between.
///
///     ProjectBundleIO::save(session, "/home/me/Talk", {.copyMedia = true});   // writes
///     /home/me/Talk.morvane ProjectSession other; ProjectBundleIO::load(other, "/home/me/Talk.morvane"); //
///     the same project, plan rebuilt
///
///     // In the window: the file work on a worker, the session touched only on the main loop.
///     auto request = ProjectBundleIO::saveInBackground(session, *session.projectURL, loop, {},
///                                                      [](std::exception_ptr failure) { ... });

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_document.hpp"
#include "morvane/app/support/main_loop.hpp"

namespace morvane::app {

class ProjectSession;
class RecentProjectsStore;

/// How a project is saved or opened.
struct BundleOptions {
    /// Also copy into "Media" the files that lie elsewhere inside the bundle. Files outside the bundle are
    /// copied in whatever this says, so a saved project is always whole.
    bool copyMedia = false;
    /// Where the project is noted as recently used; none leaves the list alone.
    RecentProjectsStore* recentProjects = nullptr;
};

namespace ProjectBundleIO {

/// A manifest above this size (20 MiB) isn't opened: it protects the open path from damaged or hostile files.
inline constexpr std::uintmax_t maxManifestBytes = 20'971'520;

/// The user's documents folder + "Morvane Projects", created when missing (a failure to create is ignored).
[[nodiscard]] std::filesystem::path defaultProjectsDirectory();
/// `path` as a bundle: ".morvane" appended unless it already ends so ("Talk" → "Talk.morvane").
[[nodiscard]] std::filesystem::path normalizedProjectURL(const std::filesystem::path& path);
/// The bundle to open at `path`: itself when it ends in ".morvane" or holds a "project.json", else none.
[[nodiscard]] std::optional<std::filesystem::path> resolveOpenURL(const std::filesystem::path& path);

/// Saves `session` to `url` (normalized to a bundle) on the calling thread, which must be the main one.
/// Throws `EditRejection` while another open or save runs, `engine::EngineError::missingFile` naming a
/// media file that isn't there, `EnginePathError` for a linked media file, and
/// `std::filesystem::filesystem_error` when the disk refuses; the previous manifest is then untouched
/// (media already copied into "Media" stays).
void save(ProjectSession& session, const std::filesystem::path& url, const BundleOptions& options = {});

/// Opens the bundle at `url` into `session` on the calling (main) thread. Throws `ProjectBundleError` (not a
/// bundle, no manifest, too large, newer format), `JsonDecodeError` naming where the manifest is damaged,
/// `EnginePathError` for the first media path the guard refuses, and `EditRejection` while another open or
/// save runs; the session's content is then unchanged. The status line says when the project was upgraded
/// from an older format and how many media files are missing.
void load(ProjectSession& session, const std::filesystem::path& url, const BundleOptions& options = {});

/// `save` with the copying and writing on a worker: the session is captured and locked now, and `done`
/// runs on `loop` once the bundle is written (with none) or has failed (with the failure, the session
/// then still marked unsaved). Call on the main thread.
std::shared_ptr<PipelineRequest> saveInBackground(ProjectSession& session, const std::filesystem::path& url,
                                                  MainLoop& loop, const BundleOptions& options,
                                                  std::function<void(std::exception_ptr)> done);

/// `load` with the reading and decoding on a worker; the session is filled on `loop`, where `done` then
/// runs with none or with the failure (the session's content unchanged). Call on the main thread.
std::shared_ptr<PipelineRequest> loadInBackground(ProjectSession& session, const std::filesystem::path& url,
                                                  MainLoop& loop, const BundleOptions& options,
                                                  std::function<void(std::exception_ptr)> done);

/// A media file's name as the bundle stores it: letters and digits of the name kept, anything else "_",
/// the extension kept; a name of nothing but punctuation takes `id` ("(!).mov" of src2 → "src2.mov").
[[nodiscard]] std::string safeFilename(std::string_view name, std::string_view id);

/// Copies `file` into `bundle`/Media under `safeFilename` and returns the copy. When a different file
/// already keeps that name for another source (`taken` maps files in "Media" to the files they are copies
/// of), the copy is named with the source id added ("talk_src2.mp4"), so two sources never share a copy
/// by accident. Throws as `copyRegularFile`.
std::filesystem::path copyIntoMediaFolder(
    const std::filesystem::path& file, const std::filesystem::path& bundle, const std::string& sourceID,
    const std::map<std::filesystem::path, std::filesystem::path>& taken = {});

/// Creates `folder` and its parents when missing. Throws `std::filesystem::filesystem_error`.
void ensureDirectory(const std::filesystem::path& folder);

/// Copies a regular file through a temporary file beside `to`, flushed and renamed, so `to` is never seen
/// half-written. Throws `EnginePathError` "Symbolic links are not allowed in project media." for a link,
/// `engine::EngineError::missingFile` when `from` isn't a regular file, and
/// `std::filesystem::filesystem_error` when the disk refuses.
void copyRegularFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// Where the cursor track of `sourceID` is kept: "Media/<sourceID>.cursor.json".
[[nodiscard]] std::filesystem::path cursorSidecarPath(const std::filesystem::path& mediaFolder,
                                                      std::string_view sourceID);

}  // namespace ProjectBundleIO

}  // namespace morvane::app
