#include "morvane/app/timeline/timeline_editor.hpp"

#include <algorithm>

#include "morvane/app/session/project_session.hpp"

namespace morvane::app {

void TimelineEditor::healMisplacedAudioOnOverlay(ProjectSession& session) {
    if (!session.timeline) return;
    TimelineTrack* overlay = session.timeline->track(TimelineTrackIDs::overlay);
    if (!overlay) return;
    std::vector<TimelineClip> moved;
    std::erase_if(overlay->clips, [&](const TimelineClip& clip) {
        const MediaBinEntry* entry = session.binEntry(clip.sourceID);
        const bool soundOnly =
            entry && !entry->hasVideo && !clip.isTextLike() && clip.kind != TimelineClipKinds::image;
        if (soundOnly) moved.push_back(clip);
        return soundOnly;
    });
    if (moved.empty()) return;
    if (!session.timeline->track(TimelineTrackIDs::audio)) {
        session.timeline->updateTrack({std::string(TimelineTrackIDs::audio),
                                       TimelineTrackKind::audio,
                                       "Audio",
                                       TimelineTrackRole::music,
                                       {}});
    }
    auto& audio = session.timeline->track(TimelineTrackIDs::audio)->clips;
    audio.insert(audio.end(), moved.begin(), moved.end());
    std::stable_sort(audio.begin(), audio.end(), [](const TimelineClip& a, const TimelineClip& b) {
        return a.timelineStart < b.timelineStart;
    });
}

}  // namespace morvane::app
