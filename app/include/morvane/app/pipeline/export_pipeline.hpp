#pragma once

/// Exporting the session's timeline: the plan brought up to date and prepared on the main thread, the
/// render on a worker, the caption sidecar written beside the movie, the outcome posted back.
///
///     auto request = ProjectPipeline::exportMP4(session, "/home/me/talk-cut.mp4", context,
///         {.progress = [](double share) { ... },                     // any thread
///          .completion = [](const ExportOutcome& outcome) { ... }});  // the main loop
///     request->cancel();                                             // ends as OperationCancelled

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "morvane/app/export/export_settings.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/engine/export/mp4_exporter.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::app {

/// How an export ended: its report, or the failure to show.
struct ExportOutcome {
    std::optional<engine::RenderReport> report;
    std::exception_ptr error;  ///< `OperationCancelled` when cancelled
};

/// What `exportMP4` runs with beside the session.
struct ExportMP4Options {
    std::optional<ExportRequest> request;  ///< the panel's; `ExportRequest::defaultFor` when absent
    ProgressCallback progress;             ///< 0 to 1, called from any thread
    std::function<void(const ExportOutcome&)> completion;  ///< called once, on the main loop
};

namespace ProjectPipeline {

/// The message shown in the error banner when the timeline gives no plan.
inline constexpr std::string_view noEditPlanMessage = "No edit plan to export";

/// Brings the plan up to date with the timeline: the media bin's sources, audio misplaced on the overlay
/// track moved, the plan rebuilt. Throws what the rebuild throws (`EngineError::invalidRationalTime`).
void refreshEditPlan(ProjectSession& session);

/// Exports the session's timeline to `to`: rebuilds the plan, applies the preset's canvas when asked,
/// resolves the sources, sets the output format and the audio finishing, renders on a worker and writes the
/// SRT sidecar of the text track beside the movie (a sidecar that can't be written fails nothing). The
/// session is read and changed only here, on the main thread; the completion reports the render's failure
/// (`EngineError`, `OperationCancelled`) or a refusal ("No edit plan to export").
std::shared_ptr<PipelineRequest> exportMP4(ProjectSession& session, const std::filesystem::path& to,
                                           PipelineContext context, ExportMP4Options options = {});

/// Exports `candidate`'s passage of the primary recording on its own (`shortEditPlan`) to `to`: the vertical
/// shorts canvas at the session's frame rate, the shorts preset's loudness, and the codec and quality of
/// `options.request` when given (its preset is not used). The session is only read, here on the main
/// thread; the completion reports as `exportMP4`'s does, with `ShortProjectError` when the session has no
/// recording.
std::shared_ptr<PipelineRequest> exportShortCandidate(const ProjectSession& session,
                                                      const intelligence::ShortsCandidate& candidate,
                                                      const std::filesystem::path& to,
                                                      PipelineContext context, ExportMP4Options options = {});

/// "Exported MP4.", "Exported MP4 + talk.srt.", "Exported GIF.", "Exported for YouTube upload." or
/// "Exported for YouTube upload (captions: talk.srt).", by the sidecar beside `file`.
[[nodiscard]] std::string exportSuccessMessage(const std::filesystem::path& file, bool publish);

/// Gives the project `format` as one undoable step. Throws `EditRejection` during a save or open.
void setProjectFormat(ProjectSession& session, const engine::ProjectFormat& format);

}  // namespace ProjectPipeline

}  // namespace morvane::app
