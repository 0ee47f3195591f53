#include "morvane/app/timeline/layout_editor.hpp"

#include "morvane/app/session/project_session.hpp"

namespace morvane::app::LayoutEditor {
namespace {

// Stores `change` on the clip and writes its track back whole.
template <class Change>
bool changeClip(ProjectSession& session, std::string_view clipID, Change change) {
    if (!session.timeline) return false;
    std::string trackID;
    if (session.timeline->findClip(clipID, &trackID) == nullptr) return false;
    TimelineTrack track = *session.timeline->track(trackID);
    for (auto& clip : track.clips) {
        if (clip.id == clipID) change(clip);
    }
    session.timeline->updateTrack(std::move(track));
    return true;
}

}  // namespace

bool setReframeKeyframes(ProjectSession& session, std::vector<engine::ReframeKeyframe> keyframes,
                         std::string_view clipID) {
    return changeClip(session, clipID,
                      [&](TimelineClip& clip) { clip.reframeKeyframes = std::move(keyframes); });
}

bool setZoomRegions(ProjectSession& session, std::optional<std::vector<engine::ClipZoomRegion>> regions,
                    std::string_view clipID) {
    return changeClip(session, clipID, [&](TimelineClip& clip) { clip.zoomRegions = std::move(regions); });
}

}  // namespace morvane::app::LayoutEditor
