#pragma once

/// The user-facing export: a progress display, the session busy with a status line that moves in steps
/// of 5 percent, and the outcome in the status line or the error banner.
///
///     ExportRunner::run(session, ExportRequest::defaultFor(session), "/home/me/talk-cut.mp4", context,
///                       {.display = &hud});
///     // status: "Preparing export…", "Exporting… 5%", …, "Exporting… 100%", then "Exported MP4 +
///     talk-cut.srt."

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "morvane/app/export/export_settings.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"

namespace morvane::app {

/// What a progress display shows for one value.
struct ExportProgressText {
    double value = 0.0;  ///< 0 to 1, for the bar
    int percent = 0;
    std::string title;   ///< "Exporting…", "Exporting… 40%"
    std::string detail;  ///< "Preparing composition…", "Rendering captions… 20%", "Encoding… 40%"

    friend bool operator==(const ExportProgressText&, const ExportProgressText&) = default;
};

namespace ExportProgressHUD {

/// The display's texts for `progress` (clamped to 0…1): preparing up to 2 percent, rendering captions up to
/// 33, encoding from 34.
[[nodiscard]] ExportProgressText texts(double progress);

}  // namespace ExportProgressHUD

/// A window's (or a terminal's) progress display for one export, driven on the main thread.
class ExportProgressDisplay {
  public:
    virtual ~ExportProgressDisplay() = default;
    /// Appears, indeterminate, with `title` and `detail`.
    virtual void show(const std::string& title, const std::string& detail) = 0;
    /// Shows `text`; the first call leaves the indeterminate state.
    virtual void update(const ExportProgressText& text) = 0;
    virtual void dismiss() = 0;
};

/// Lets the status line change only when the percent is new and a multiple of 5 (or above 98), so it
/// moves about twenty times a run. Updates may come from interleaved hops, hence the lock.
class ExportStatusThrottle {
  public:
    /// Whether `percent` should be shown; if so it becomes the last one shown.
    [[nodiscard]] bool admit(int percent);

  private:
    std::mutex mutex_;
    int lastPercent_ = -1;
};

/// What a run is asked for beside the request.
struct ExportRunOptions {
    bool publish = false;                      ///< prepare the file for a YouTube upload
    ExportProgressDisplay* display = nullptr;  ///< must outlive the run
    /// Opens the upload page and shows the file, after a published export.
    std::function<void(const std::filesystem::path&)> openUploadFlow;
};

namespace ExportRunner {

/// Runs an export of the session's timeline to `to` on the main loop of `context`: busy with the run's
/// title, progress on the display and in the status line, then `setSuccess` with the success message or
/// `setError` with the failure's text ("Cancelled" when cancelled).
std::shared_ptr<PipelineRequest> run(ProjectSession& session, const ExportRequest& request,
                                     const std::filesystem::path& to, PipelineContext context,
                                     ExportRunOptions options = {});

}  // namespace ExportRunner

}  // namespace morvane::app
