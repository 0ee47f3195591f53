#include "morvane/app/project/project_bundle_io.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <fmt/core.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <random>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/recent_projects_store.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/launch_log.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;

namespace {

constexpr const char* kManifest = "project.json";
constexpr const char* kMediaFolder = "Media";

// The last component of a path, also when it ends in a separator ("Talk.morvane/").
std::string lastComponent(const fs::path& path) {
    const fs::path normal = path.lexically_normal();
    return normal.has_filename() ? normal.filename().string() : normal.parent_path().filename().string();
}

bool isPresent(const fs::path& path) {
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

// Temporary files of a save that was killed half-way: never part of a project.
void removeStaleTemporaries(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.starts_with("morvane-") && name.ends_with(".tmp")) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
}

// What a save writes, captured on the main thread so the worker never touches the session.
struct SaveJob {
    fs::path bundle;
    fs::path base;  // what the bin's relative paths are relative to: the project's bundle until now
    ProjectDocument document;
    bool copyMedia = false;
};

// What an open read, before anything of the session is touched.
struct OpenedBundle {
    fs::path bundle;
    ProjectDocument document;
    std::map<std::string, engine::CursorTrack> sidecarTracks;
};

// The session's status line while a job shows in it, put back when the job ends well.
struct StatusLine {
    std::string message;
    SessionStatusKind kind;
};

struct LockedJob {
    std::string id;
    StatusLine status;
};

LockedJob beginExclusiveJob(ProjectSession& session, MediaJobKind kind, const std::string& title) {
    EditCoordinator::requireUnlocked(session);
    const StatusLine status{session.statusMessage, session.statusKind};
    return {session.beginJob(kind, title), status};
}

// Ends the job and puts back the status line it covered.
void endExclusiveJob(ProjectSession& session, const LockedJob& lock) {
    session.endJob(lock.id);
    session.statusMessage = lock.status.message;
    session.statusKind = lock.status.kind;
}

std::string savingTitle(const ProjectSession& session) {
    return "Saving " + session.projectName + "…";
}

std::string openingTitle(const fs::path& url) {
    return "Opening " + lastComponent(url) + "…";
}

// Captures what a save writes, and marks the project saved from this moment: whatever changes while the
// bundle is written marks it unsaved again.
SaveJob prepareSave(ProjectSession& session, const fs::path& url, const BundleOptions& options) {
    SaveJob job{.bundle = ProjectBundleIO::normalizedProjectURL(url),
                .base = {},
                .document = ProjectDocument::capture(session),
                .copyMedia = options.copyMedia};
    job.base = session.projectURL.value_or(job.bundle);
    session.isDirty = false;
    return job;
}

// The bin's files brought into the bundle, the cursor tracks beside them, then the manifest. Returns the
// bin as written.
std::vector<MediaBinEntry> writeBundle(SaveJob job) {
    ProjectBundleIO::ensureDirectory(job.bundle);
    const fs::path mediaFolder = job.bundle / kMediaFolder;
    ProjectBundleIO::ensureDirectory(mediaFolder);
    removeStaleTemporaries(job.bundle);
    removeStaleTemporaries(mediaFolder);

    const fs::path root = MediaPathGuard::standardized(job.bundle);
    std::vector<fs::path> sources;
    std::map<fs::path, fs::path> taken;  // copies in Media → what they are copies of
    for (const auto& entry : job.document.mediaBin) {
        const fs::path source = MediaPathGuard::standardized(entry.resolvedURL(job.base));
        if (!isPresent(source)) {
            // Named as the entry names it: a path the guard refused resolves to a placeholder.
            const fs::path named = entry.resolvedURL(std::nullopt);
            throw engine::EngineError::missingFile((named.is_absolute() ? named : job.base / named).string());
        }
        sources.push_back(source);
        if (MediaPathGuard::isInside(source, root)) taken[source] = source;
    }
    for (std::size_t i = 0; i < job.document.mediaBin.size(); ++i) {
        MediaBinEntry& entry = job.document.mediaBin[i];
        const fs::path& source = sources[i];
        if (!job.copyMedia && MediaPathGuard::isInside(source, root)) {
            entry.urlPath = MediaBinEntry::storedPath(source, root);
            continue;
        }
        const fs::path copy = ProjectBundleIO::copyIntoMediaFolder(source, job.bundle, entry.id, taken);
        taken[MediaPathGuard::standardized(copy)] = source;
        entry.urlPath = std::string(kMediaFolder) + "/" + copy.filename().string();
    }
    for (const auto& [sourceID, track] : job.document.cursorTracks) {
        writeFileAtomically(ProjectBundleIO::cursorSidecarPath(mediaFolder, sourceID),
                            dumpJson(withSortedKeys(Json(track)), 2));
    }
    writeFileAtomically(job.bundle / kManifest, ProjectDocument::encode(job.document));
    return job.document.mediaBin;
}

// A list of recent projects that can't be written is no reason to fail the save or open itself.
void noteRecent(const BundleOptions& options, const fs::path& bundle) {
    if (!options.recentProjects) return;
    try {
        options.recentProjects->noteOpened(bundle);
    } catch (const std::exception& e) {
        LaunchLog::append(std::string("Could not remember the recent project: ") + e.what());
    }
}

// Back on the main thread after a good write.
void finishSave(ProjectSession& session, const fs::path& bundle, const std::vector<MediaBinEntry>& written,
                const BundleOptions& options) {
    session.projectURL = bundle;
    // Only the paths changed; entries are matched by id so nothing added since the capture is lost.
    for (const auto& saved : written) {
        for (auto& entry : session.mediaBin) {
            if (entry.id == saved.id) entry.urlPath = saved.urlPath;
        }
    }
    session.syncExtraSourcesFromMediaBin(bundle);
    if (session.binEntry(session.primarySourceID)) {
        session.mediaURL = session.extraSources.at(session.primarySourceID);
    }
    session.notifyChange();
    noteRecent(options, bundle);
}

OpenedBundle readBundle(const fs::path& url) {
    const auto bundle = ProjectBundleIO::resolveOpenURL(url);
    if (!bundle) throw ProjectBundleError::notABundle(lastComponent(url));
    const fs::path manifest = *bundle / kManifest;
    std::error_code error;
    if (!fs::is_regular_file(manifest, error))
        throw ProjectBundleError::missingManifest(lastComponent(*bundle));
    const auto size = fs::file_size(manifest, error);
    if (error) throw fs::filesystem_error("cannot read", manifest, error);
    if (size > ProjectBundleIO::maxManifestBytes) throw ProjectBundleError::manifestTooLarge();

    OpenedBundle opened{
        .bundle = *bundle, .document = ProjectDocument::decode(readWholeFile(manifest)), .sidecarTracks = {}};
    for (const auto& entry : opened.document.mediaBin)
        (void)MediaPathGuard::resolve(entry.urlPath, *bundle);
    for (const auto& entry : opened.document.mediaBin) {
        const fs::path sidecar = ProjectBundleIO::cursorSidecarPath(*bundle / kMediaFolder, entry.id);
        if (!isPresent(sidecar)) continue;
        try {
            const Json json = parseJson(readWholeFile(sidecar), sidecar.filename().string());
            opened.sidecarTracks[entry.id] =
                JsonReader(json, sidecar.filename().string()).get<engine::CursorTrack>();
        } catch (const std::exception&) {
            // A damaged cursor track costs its zooms, not the project.
        }
    }
    return opened;
}

// Fills the session from what was read; the status says what the user should know.
void finishLoad(ProjectSession& session, OpenedBundle opened, const BundleOptions& options) {
    opened.document.apply(session, opened.bundle);
    for (auto& [sourceID, track] : opened.sidecarTracks)
        session.cursorTracks[sourceID] = std::move(track);

    std::string status;
    const bool upgraded = opened.document.version != ProjectDocument::currentVersion;
    if (upgraded) {
        session.commitSourceTranscript();
        status =
            fmt::format("Project upgraded to format v{}. Save to finalize.", ProjectDocument::currentVersion);
    }
    const auto offline =
        std::count_if(session.mediaBin.begin(), session.mediaBin.end(),
                      [&](const MediaBinEntry& e) { return !isPresent(e.resolvedURL(opened.bundle)); });
    if (offline > 0)
        status += fmt::format("{}{} media file(s) need relinking.", status.empty() ? "" : " ", offline);
    if (status.empty()) status = "Opened " + session.projectName + ".";
    session.setSuccess(status);

    session.projectURL = opened.bundle;
    session.isDirty = upgraded;
    session.notifyChange();
    noteRecent(options, opened.bundle);
}

// The main thread's part once the bundle is written (or the write failed): the session learns where it
// lives now, or stays unsaved. Returns the failure, the write's or this step's.
std::exception_ptr completeSave(ProjectSession& session, const LockedJob& lock, const SaveJob& job,
                                const std::vector<MediaBinEntry>& written, std::exception_ptr failure,
                                const BundleOptions& options) {
    endExclusiveJob(session, lock);
    if (!failure) {
        try {
            finishSave(session, job.bundle, written, options);
        } catch (...) {
            failure = std::current_exception();
        }
    }
    if (failure) {
        session.isDirty = true;
        session.notifyChange();
    }
    return failure;
}

// The main thread's part once the bundle is read: the session is filled, or left as it was.
std::exception_ptr completeLoad(ProjectSession& session, const LockedJob& lock,
                                std::optional<OpenedBundle>& opened, std::exception_ptr failure,
                                const BundleOptions& options) {
    endExclusiveJob(session, lock);
    if (failure) return failure;
    try {
        finishLoad(session, std::move(*opened), options);
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

}  // namespace

fs::path ProjectBundleIO::defaultProjectsDirectory() {
    const fs::path folder = documentsDirectory() / "Morvane Projects";
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    return folder;
}

fs::path ProjectBundleIO::normalizedProjectURL(const fs::path& path) {
    fs::path bundle = path.lexically_normal();
    if (!bundle.has_filename()) bundle = bundle.parent_path();
    if (bundle.extension() != ".morvane") bundle += ".morvane";
    return bundle;
}

std::optional<fs::path> ProjectBundleIO::resolveOpenURL(const fs::path& path) {
    fs::path bundle = path.lexically_normal();
    if (!bundle.has_filename()) bundle = bundle.parent_path();
    if (bundle.extension() == ".morvane") return bundle;
    std::error_code error;
    if (fs::is_regular_file(bundle / kManifest, error)) return bundle;
    return std::nullopt;
}

std::string ProjectBundleIO::safeFilename(std::string_view name, std::string_view id) {
    const fs::path file{std::string(name)};
    const std::string stem = file.stem().string();
    const std::string extension = file.extension().string();
    std::string safe;
    // Byte by byte over UTF-8: every byte of a non-ASCII letter becomes "_", so the name stays portable.
    for (const char c : stem) {
        const bool alphanumeric = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        safe += alphanumeric ? c : '_';
    }
    // A name of nothing but punctuation would become underscores alone: the id says more.
    if (safe.find_first_not_of('_') == std::string::npos) safe = id;
    return safe + extension;
}

fs::path ProjectBundleIO::copyIntoMediaFolder(const fs::path& file, const fs::path& bundle,
                                              const std::string& sourceID,
                                              const std::map<fs::path, fs::path>& taken) {
    const fs::path mediaFolder = bundle / kMediaFolder;
    ensureDirectory(mediaFolder);
    const fs::path source = MediaPathGuard::standardized(file);
    const std::string name = safeFilename(file.filename().string(), sourceID);
    fs::path copy = mediaFolder / name;
    const auto keptFor = [&](const fs::path& candidate) {
        const auto it = taken.find(MediaPathGuard::standardized(candidate));
        return it == taken.end() ? std::nullopt : std::optional(it->second);
    };
    if (const auto other = keptFor(copy); other && *other != source) {
        const fs::path parts(name);
        copy = mediaFolder / (parts.stem().string() + "_" + sourceID + parts.extension().string());
        for (int n = 2; keptFor(copy) && *keptFor(copy) != source; ++n) {
            copy = mediaFolder /
                   fmt::format("{}_{}_{}{}", parts.stem().string(), sourceID, n, parts.extension().string());
        }
    }
    // The file as given, so a link is refused rather than followed.
    if (MediaPathGuard::standardized(copy) != source) copyRegularFile(file, copy);
    return copy;
}

void ProjectBundleIO::ensureDirectory(const fs::path& folder) {
    fs::create_directories(folder);
}

void ProjectBundleIO::copyRegularFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(from, error);
    if (fs::is_symlink(status)) throw EnginePathError("Symbolic links are not allowed in project media.");
    if (!fs::is_regular_file(status)) throw engine::EngineError::missingFile(from.string());
    std::random_device entropy;
    const fs::path temporary = to.parent_path() / ("morvane-" + std::to_string(entropy()) + ".tmp");
    try {
        fs::copy_file(from, temporary, fs::copy_options::overwrite_existing);
        const int fd = ::open(temporary.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || ::fsync(fd) != 0) {
            const std::error_code reason(errno, std::generic_category());
            if (fd >= 0) ::close(fd);
            throw fs::filesystem_error("cannot flush", temporary, reason);
        }
        ::close(fd);
        fs::rename(temporary, to);
    } catch (...) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw;
    }
}

fs::path ProjectBundleIO::cursorSidecarPath(const fs::path& mediaFolder, std::string_view sourceID) {
    return mediaFolder / (std::string(sourceID) + ".cursor.json");
}

void ProjectBundleIO::save(ProjectSession& session, const fs::path& url, const BundleOptions& options) {
    const LockedJob lock = beginExclusiveJob(session, MediaJobKind::projectSave, savingTitle(session));
    const SaveJob job = prepareSave(session, url, options);
    std::vector<MediaBinEntry> written;
    std::exception_ptr failure;
    try {
        written = writeBundle(job);
    } catch (...) {
        failure = std::current_exception();
    }
    failure = completeSave(session, lock, job, written, failure, options);
    if (failure) std::rethrow_exception(failure);
}

void ProjectBundleIO::load(ProjectSession& session, const fs::path& url, const BundleOptions& options) {
    const LockedJob lock = beginExclusiveJob(session, MediaJobKind::projectOpen, openingTitle(url));
    std::optional<OpenedBundle> opened;
    std::exception_ptr failure;
    try {
        opened = readBundle(url);
    } catch (...) {
        failure = std::current_exception();
    }
    failure = completeLoad(session, lock, opened, failure, options);
    if (failure) std::rethrow_exception(failure);
}

std::shared_ptr<PipelineRequest> ProjectBundleIO::saveInBackground(
    ProjectSession& session, const fs::path& url, MainLoop& loop, const BundleOptions& options,
    std::function<void(std::exception_ptr)> done) {
    const LockedJob lock = beginExclusiveJob(session, MediaJobKind::projectSave, savingTitle(session));
    auto job = std::make_shared<const SaveJob>(prepareSave(session, url, options));
    auto written = std::make_shared<std::vector<MediaBinEntry>>();
    return runInBackground(
        loop, [job, written](std::stop_token) { *written = writeBundle(*job); },
        [&session, lock, job, written, options, done = std::move(done)](std::exception_ptr failure) {
            done(completeSave(session, lock, *job, *written, failure, options));
        });
}

std::shared_ptr<PipelineRequest> ProjectBundleIO::loadInBackground(
    ProjectSession& session, const fs::path& url, MainLoop& loop, const BundleOptions& options,
    std::function<void(std::exception_ptr)> done) {
    const LockedJob lock = beginExclusiveJob(session, MediaJobKind::projectOpen, openingTitle(url));
    auto opened = std::make_shared<std::optional<OpenedBundle>>();
    return runInBackground(
        loop, [url, opened](std::stop_token) { *opened = readBundle(url); },
        [&session, lock, opened, options, done = std::move(done)](std::exception_ptr failure) {
            done(completeLoad(session, lock, *opened, failure, options));
        });
}

}  // namespace morvane::app
