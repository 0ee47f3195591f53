#include <fmt/core.h>

#include <filesystem>
#include <memory>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/layout_editor.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/engine_error.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;
namespace AutoReframeAnalyzer = intelligence::AutoReframeAnalyzer;

namespace {

// One clip to analyse, read from the session on the main thread.
struct ReframeTask {
    std::string clipID;
    std::string label;
    std::optional<fs::path> file;
    std::vector<engine::ProgramClip> pieces;
};

// What the worker found for one clip: its keyframes, or why there are none.
struct ReframeOutcome {
    std::string clipID;
    std::vector<engine::ProgramClip> pieces;  // as analysed: a clip edited meanwhile is left alone
    std::vector<engine::ReframeKeyframe> keyframes;
    std::exception_ptr failure;
};

// A clip's played ranges as clips of their own, each at its program position: a packed cut jumps through
// its source, and the samples must follow the jumps.
std::vector<engine::ProgramClip> piecesOf(const TimelineClip& clip, const std::string& trackID) {
    const engine::ProgramClip whole = TimelinePlanBridge::programClip(clip, trackID);
    if (!clip.assemblyRanges || clip.assemblyRanges->empty()) return {whole};
    std::vector<engine::ProgramClip> pieces;
    RationalTime at = clip.timelineStart;
    for (const auto& range : *clip.assemblyRanges) {
        engine::ProgramClip piece = whole;
        piece.start = range.sourceIn;
        piece.end = range.sourceOut;
        piece.timelineStart = at;
        at = at.adding(piece.duration());
        pieces.push_back(std::move(piece));
    }
    return pieces;
}

std::optional<fs::path> fileOf(const ProjectSession& session, const std::string& sourceID) {
    if (const MediaBinEntry* entry = session.binEntry(sourceID)) return sourceFile(session, *entry);
    if (sourceID == session.primarySourceID) return session.mediaURL;
    return std::nullopt;
}

std::vector<engine::ReframeKeyframe> analyse(const ReframeTask& task, engine::PixelSize renderSize,
                                             double sampleInterval, const ProgressCallback& progress,
                                             const std::stop_token& stop) {
    if (!task.file) throw engine::EngineError::missingFile(task.label);
    std::vector<engine::ReframeKeyframe> keyframes;
    const double count = static_cast<double>(task.pieces.size());
    for (std::size_t i = 0; i < task.pieces.size(); ++i) {
        auto piece = AutoReframeAnalyzer::keyframes(
            *task.file, task.pieces[i], renderSize, sampleInterval,
            [&](double share) { progress((static_cast<double>(i) + share) / count); }, stop);
        keyframes.insert(keyframes.end(), piece.begin(), piece.end());
    }
    return keyframes;
}

// On the main loop: the keyframes of the clips that worked, written as one step.
void applyOutcomes(ProjectSession& session, const std::vector<ReframeOutcome>& outcomes,
                   bool switchToShorts) {
    std::exception_ptr firstFailure;
    std::vector<const ReframeOutcome*> worked;
    for (const auto& outcome : outcomes) {
        if (outcome.failure) {
            if (!firstFailure) firstFailure = outcome.failure;
        } else {
            worked.push_back(&outcome);
        }
    }
    if (worked.empty()) {
        session.setError(AutoReframeAnalyzer::readableOpenError(firstFailure));
        return;
    }
    int applied = 0;
    try {
        EditCoordinator::perform(session, "Auto-Reframe", [&] {
            if (switchToShorts) ProjectPipeline::prepareForShorts(session);
            for (const ReframeOutcome* outcome : worked) {
                std::string trackID;
                const TimelineClip* clip =
                    session.timeline ? session.timeline->findClip(outcome->clipID, &trackID) : nullptr;
                if (clip == nullptr || piecesOf(*clip, trackID) != outcome->pieces) continue;
                if (LayoutEditor::setReframeKeyframes(session, outcome->keyframes, outcome->clipID))
                    ++applied;
            }
        });
    } catch (const std::exception& e) {
        session.setError(e.what());
        return;
    }
    session.setSuccess(fmt::format("Auto-reframe applied to {} clip{}.", applied, applied == 1 ? "" : "s"));
}

}  // namespace

void ProjectPipeline::prepareForShorts(ProjectSession& session) {
    if (!session.timeline) TimelinePlanBridge::bootstrapEmptyTimeline(session);
    auto& format = session.timeline->projectFormat;
    if (format && format->preset == engine::ProjectFormatPreset::shorts) return;
    format = engine::ProjectFormat::fromPreset(engine::ProjectFormatPreset::shorts, session.frameDuration);
}

std::shared_ptr<PipelineRequest> ProjectPipeline::autoReframeClips(ProjectSession& session,
                                                                   std::vector<std::string> clipIDs,
                                                                   bool switchToShorts,
                                                                   PipelineContext context,
                                                                   AutoReframeOptions options) {
    std::vector<ReframeTask> tasks;
    for (const auto& id : clipIDs) {
        std::string trackID;
        const TimelineClip* clip = session.timeline ? session.timeline->findClip(id, &trackID) : nullptr;
        if (clip == nullptr || !TimelineEditor::isVideoClip(session, id)) continue;
        tasks.push_back({id, clip->label, fileOf(session, clip->sourceID), piecesOf(*clip, trackID)});
    }
    if (tasks.empty()) {
        session.setError("Select a video clip to auto-reframe.");
        if (options.completion) options.completion();
        return finishedRequest();
    }
    const engine::ProjectFormat target =
        switchToShorts || !session.timeline->projectFormat
            ? engine::ProjectFormat::fromPreset(switchToShorts ? engine::ProjectFormatPreset::shorts
                                                               : engine::ProjectFormatPreset::youtube1080,
                                                session.frameDuration)
            : *session.timeline->projectFormat;
    const engine::PixelSize renderSize{target.width, target.height};

    const std::string jobID =
        session.beginJob(MediaJobKind::analyzeSubject, "Auto-reframing…", std::nullopt, true);
    auto outcomes = std::make_shared<std::vector<ReframeOutcome>>();
    ProjectSession* owner = &session;
    MainLoop& loop = context.mainLoop;
    return runInBackground(
        loop,
        [tasks = std::move(tasks), renderSize, interval = options.sampleInterval, outcomes, owner, jobID,
         &loop](std::stop_token stop) {
            for (std::size_t i = 0; i < tasks.size(); ++i) {
                const auto progress = [&, i](double share) {
                    const double at = (static_cast<double>(i) + share) / static_cast<double>(tasks.size());
                    loop.post([owner, jobID, at] { owner->updateJob(jobID, at); });
                };
                ReframeOutcome outcome{.clipID = tasks[i].clipID, .pieces = tasks[i].pieces};
                try {
                    outcome.keyframes = analyse(tasks[i], renderSize, interval, progress, stop);
                } catch (const OperationCancelled&) {
                    throw;
                } catch (...) {
                    outcome.failure = std::current_exception();  // the other clips go on
                }
                outcomes->push_back(std::move(outcome));
            }
        },
        [owner, jobID, outcomes, switchToShorts,
         completion = std::move(options.completion)](std::exception_ptr failure) {
            ProjectSession& s = *owner;
            s.endJob(jobID);
            if (!failure) {
                applyOutcomes(s, *outcomes, switchToShorts);
            } else if (isCancellation(failure)) {
                s.statusMessage = "Auto-reframe cancelled.";
                s.notifyChange();
            } else {
                s.setError(describeFailure(failure));
            }
            if (completion) completion();
        });
}

std::shared_ptr<PipelineRequest> ProjectPipeline::autoReframeSelectedClip(ProjectSession& session,
                                                                          PipelineContext context,
                                                                          AutoReframeOptions options) {
    std::vector<std::string> clipIDs;
    if (session.selectedClipID) clipIDs.push_back(*session.selectedClipID);
    return autoReframeClips(session, std::move(clipIDs), true, context, std::move(options));
}

std::shared_ptr<PipelineRequest> ProjectPipeline::runAutoReframe(ProjectSession& session,
                                                                 PipelineContext context,
                                                                 bool formatAlreadySet,
                                                                 AutoReframeOptions options) {
    std::vector<std::string> clipIDs;
    for (const auto& id : session.selectedClipIDs) {
        if (TimelineEditor::isVideoClip(session, id)) clipIDs.push_back(id);
    }
    if (clipIDs.empty() && session.timeline) {
        for (const auto& clip : TimelinePlanBridge::primaryVideoClips(session))
            clipIDs.push_back(clip.id);
    }
    return autoReframeClips(session, std::move(clipIDs), !formatAlreadySet, context, std::move(options));
}

}  // namespace morvane::app
