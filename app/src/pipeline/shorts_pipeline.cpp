#include <cstdint>
#include <filesystem>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/pipeline/shorts_project_builder.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::app {

engine::EditPlan ProjectPipeline::shortEditPlan(const ProjectSession& session,
                                                const intelligence::ShortsCandidate& candidate,
                                                const engine::ProjectFormat& format) {
    if (!session.mediaURL) throw ShortProjectError("Import a recording before exporting a short.");
    engine::EditPlan plan;
    plan.timeline = {.frameDuration = session.frameDuration, .renderSize = format.renderSizeToken()};
    engine::EditPlanSource source{
        .id = session.primarySourceID,
        .url = fileURL(std::filesystem::absolute(*session.mediaURL).lexically_normal()),
        .frameDuration = session.frameDuration};
    if (const auto track = session.cursorTracks.find(session.primarySourceID);
        track != session.cursorTracks.end()) {
        source.cursorTrack = track->second;
    }
    plan.sources.push_back(std::move(source));
    plan.operations.push_back(
        {.type = std::string(engine::kEditPlanOperationTypeNames.text(engine::EditPlanOperationType::keep)),
         .sourceID = session.primarySourceID,
         .start = candidate.sourceStart.formatted(false),
         .end = candidate.sourceEnd.formatted(false),
         .origin = engine::EditPlanOrigin{.kind = std::string(engine::kEditPlanOriginKindNames.text(
                                              engine::EditPlanOriginKind::shortCandidate)),
                                          .segmentIDs = std::vector<std::int64_t>(
                                              candidate.segmentIDs.begin(), candidate.segmentIDs.end())}});
    return plan;
}

}  // namespace morvane::app
