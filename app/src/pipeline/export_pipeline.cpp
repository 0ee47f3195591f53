#include "morvane/app/pipeline/export_pipeline.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/export/caption_exporter.hpp"
#include "morvane/engine/export/gif_exporter.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;
using engine::EditPlan;

namespace {

// What the worker renders: copies, since the session stays editable meanwhile.
struct RenderJob {
    EditPlan plan;
    fs::path to;
    engine::MP4RenderOptions options;
};

RenderJob prepare(ProjectSession& session, const fs::path& to, const std::optional<ExportRequest>& given) {
    // A session handed over from elsewhere may be stale.
    ProjectPipeline::refreshEditPlan(session);
    if (!session.editPlan) throw std::runtime_error(std::string(ProjectPipeline::noEditPlanMessage));
    const ExportRequest request = given.value_or(ExportRequest::defaultFor(session));
    if (request.updateProjectFormat) {
        ProjectPipeline::setProjectFormat(session, request.preset.projectFormat(session.frameDuration));
        if (!session.editPlan) throw std::runtime_error(std::string(ProjectPipeline::noEditPlanMessage));
    }
    const engine::ProjectFormat format = ExportSettings::exportOutputFormat(session, request);
    // A plan exists only with a primary recording.
    const fs::path base = session.projectURL.value_or(session.mediaURL->parent_path());
    EditPlan plan = engine::EditPlanCoding::resolveSourceURLs(*session.editPlan, base);
    plan.timeline.renderSize = format.renderSizeToken();
    plan.timeline.frameDuration = format.frameDuration;

    engine::AudioFinishingOptions audio = engine::AudioFinishingOptions::forExport();
    audio.speechSpans = SpeechSpanMapper::programSpeechSpans(session);
    audio.loudnessTarget = request.preset.loudnessTarget;
    return {std::move(plan), to,
            engine::MP4RenderOptions{.audio = std::move(audio),
                                     .timeRange = ExportSettings::exportTimeRange(session, request),
                                     .videoSettings = request.videoSettings,
                                     .burnInCaptions = request.burnInCaptions}};
}

// Renders, then writes the sidecar; a sidecar that can't be written costs the export nothing.
engine::RenderReport render(const RenderJob& job, const ProgressCallback& progress, std::stop_token stop) {
    if (job.options.videoSettings.codec == engine::ExportVideoCodec::gif)
        return engine::GIFExporter::render(job.plan, job.options.audio, job.options.timeRange,
                                           job.options.videoSettings.gifOptions(), job.to, progress, stop);
    engine::RenderReport report = engine::MP4Exporter::render(job.plan, job.to, job.options, progress, stop);
    try {
        (void)engine::CaptionExporter::writeSidecar(job.plan, job.to);
    } catch (const std::exception&) {
        // The movie stands on its own; its success message then names no captions.
    }
    return report;
}

// The recording's words within the passage, as spans of the short's own time.
std::vector<engine::TimeSpan> speechWithin(const ProjectSession& session, RationalTime start,
                                           RationalTime end) {
    std::vector<engine::TimeSpan> spans;
    if (!session.transcript) return spans;
    const auto& words = session.transcript->words;
    auto word =
        std::partition_point(words.begin(), words.end(), [&](const auto& w) { return w.end <= start; });
    for (; word != words.end() && word->start < end; ++word) {
        const RationalTime from = word->start < start ? start : word->start;
        const RationalTime to = word->end > end ? end : word->end;
        spans.push_back({from.subtracting(start), to.subtracting(start)});
    }
    return spans;
}

std::shared_ptr<PipelineRequest> runRender(MainLoop& loop, RenderJob job, ExportMP4Options options) {
    auto shared = std::make_shared<RenderJob>(std::move(job));
    auto report = std::make_shared<std::optional<engine::RenderReport>>();
    return runInBackground(
        loop,
        [shared, report, progress = std::move(options.progress)](std::stop_token stop) {
            *report = render(*shared, progress, stop);
        },
        [report, completion = std::move(options.completion)](std::exception_ptr error) {
            if (!completion) return;
            ExportOutcome outcome;
            if (error) {
                outcome.error = error;
            } else {
                outcome.report = *report;
            }
            completion(outcome);
        });
}

std::shared_ptr<PipelineRequest> refused(MainLoop& loop,
                                         std::function<void(const ExportOutcome&)> completion) {
    loop.post([completion = std::move(completion), error = std::current_exception()] {
        if (completion) completion({.error = error});
    });
    return finishedRequest();
}

}  // namespace

void ProjectPipeline::refreshEditPlan(ProjectSession& session) {
    session.syncExtraSourcesFromMediaBin();
    TimelineEditor::healMisplacedAudioOnOverlay(session);
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
}

std::shared_ptr<PipelineRequest> ProjectPipeline::exportMP4(ProjectSession& session, const fs::path& to,
                                                            PipelineContext context,
                                                            ExportMP4Options options) {
    std::optional<RenderJob> job;
    try {
        job = prepare(session, to, options.request);
    } catch (...) {
        return refused(context.mainLoop, std::move(options.completion));
    }
    return runRender(context.mainLoop, std::move(*job), std::move(options));
}

std::shared_ptr<PipelineRequest> ProjectPipeline::exportShortCandidate(
    const ProjectSession& session, const intelligence::ShortsCandidate& candidate, const fs::path& to,
    PipelineContext context, ExportMP4Options options) {
    std::optional<RenderJob> job;
    try {
        const engine::ExportPreset& preset = engine::ExportPreset::shorts;
        EditPlan plan = shortEditPlan(session, candidate, preset.projectFormat(session.frameDuration));
        engine::AudioFinishingOptions audio = engine::AudioFinishingOptions::forExport();
        audio.speechSpans = speechWithin(session, candidate.sourceStart, candidate.sourceEnd);
        audio.loudnessTarget = preset.loudnessTarget;
        engine::ExportVideoSettings video;
        if (options.request) video = options.request->videoSettings;
        job = RenderJob{std::move(plan), to, {.audio = std::move(audio), .videoSettings = video}};
    } catch (...) {
        return refused(context.mainLoop, std::move(options.completion));
    }
    return runRender(context.mainLoop, std::move(*job), std::move(options));
}

std::string ProjectPipeline::exportSuccessMessage(const fs::path& file, bool publish) {
    fs::path sidecar = file;
    sidecar.replace_extension("srt");
    std::error_code error;
    const bool hasSidecar = fs::exists(sidecar, error);
    const std::string name = sidecar.filename().string();
    if (publish) {
        return hasSidecar ? "Exported for YouTube upload (captions: " + name + ")."
                          : "Exported for YouTube upload.";
    }
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".gif") return "Exported GIF.";
    return hasSidecar ? "Exported MP4 + " + name + "." : "Exported MP4.";
}

void ProjectPipeline::setProjectFormat(ProjectSession& session, const engine::ProjectFormat& format) {
    EditCoordinator::perform(session, "Change Project Format", [&] {
        if (!session.timeline) TimelinePlanBridge::bootstrapEmptyTimeline(session);
        session.timeline->projectFormat = format;
    });
}

}  // namespace morvane::app
