#include "timeline/editor_support.hpp"

#include <algorithm>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/time/clip_speed.hpp"
#include "timeline/clip_edits.hpp"

namespace morvane::app::EditorSupport {

std::optional<Located> locate(ProjectSession& session, std::string_view clipID) {
    if (!session.timeline) return std::nullopt;
    for (auto& track : session.timeline->tracks) {
        for (std::size_t i = 0; i < track.clips.size(); ++i) {
            if (track.clips[i].id == clipID) return Located{&track, i};
        }
    }
    return std::nullopt;
}

bool isSequential(const TimelineTrack& track) {
    return track.id == TimelineTrackIDs::source || track.id == TimelineTrackIDs::program;
}

bool onSourceAxis(const ProjectSession& session, const TimelineTrack& track) {
    return track.id == TimelineTrackIDs::source && !TimelinePlanBridge::storylineUsesProgramAxis(session);
}

RationalTime programTimeOf(const TimelineClip& clip, double axisSeconds, bool sourceAxis) {
    const RationalTime t = ClipEdits::secondsTime(axisSeconds);
    if (!sourceAxis) return t;
    return clip.timelineStart.adding(
        engine::ClipSpeed::programDuration(t.subtracting(clip.sourceIn), clip.playbackRate));
}

void sortByStart(std::vector<TimelineClip>& clips) {
    std::stable_sort(clips.begin(), clips.end(), [](const TimelineClip& a, const TimelineClip& b) {
        return a.timelineStart < b.timelineStart;
    });
}

void closeUp(ProjectSession& session, std::string_view trackID) {
    if (trackID == TimelineTrackIDs::source) {
        if (TimelinePlanBridge::storylineUsesProgramAxis(session)) {
            TimelinePlanBridge::compactSourceTrack(session);
        } else {
            TimelineMagneticBridge::resolveConnectedClips(session);
        }
        return;
    }
    TimelineTrack* track = session.timeline->track(trackID);
    if (!track) return;
    sortByStart(track->clips);
    if (trackID == TimelineTrackIDs::program) {
        ClipEdits::compactProgramAxis(track->clips);
        TimelineMagneticBridge::resolveConnectedClips(session);
    }
}

void keepConnection(TimelineClip& clip, RationalTime previousStart) {
    if (!clip.connectedOffset) return;
    clip.connectedOffset = clip.connectedOffset->adding(clip.timelineStart.subtracting(previousStart));
}

void moveKeepingConnection(TimelineClip& clip, RationalTime start) {
    const RationalTime previous = clip.timelineStart;
    clip.moveTo(start);
    keepConnection(clip, previous);
}

SourceMedia mediaOf(const ProjectSession& session, const std::string& sourceID) {
    if (const MediaBinEntry* entry = session.binEntry(sourceID)) {
        return {entry->hasVideo, entry->hasAudio, engine::CompositionBuilder::isImageFile(entry->urlPath)};
    }
    if (sourceID == session.primarySourceID && session.mediaURL) {
        return {session.mediaHasVideo, true,
                engine::CompositionBuilder::isImageFile(session.mediaURL->string())};
    }
    return {};
}

bool isImage(const TimelineClip& clip, const ProjectSession& session) {
    return clip.kind == TimelineClipKinds::image || mediaOf(session, clip.sourceID).isImage;
}

std::optional<std::string_view> trackIDForLane(TimelineLaneKind lane) {
    switch (lane) {
        case TimelineLaneKind::storyline:
            return TimelineTrackIDs::source;
        case TimelineLaneKind::program:
            return TimelineTrackIDs::program;
        case TimelineLaneKind::overlay:
            return TimelineTrackIDs::overlay;
        case TimelineLaneKind::audio:
            return TimelineTrackIDs::audio;
        case TimelineLaneKind::text:
            return TimelineTrackIDs::text;
        case TimelineLaneKind::layout:
        case TimelineLaneKind::speech:
            return std::nullopt;
    }
    return std::nullopt;
}

std::optional<TimelineLaneKind> laneForTrack(std::string_view trackID) {
    for (const auto lane : {TimelineLaneKind::storyline, TimelineLaneKind::program, TimelineLaneKind::overlay,
                            TimelineLaneKind::audio, TimelineLaneKind::text}) {
        if (trackIDForLane(lane) == trackID) return lane;
    }
    return std::nullopt;
}

bool laneAccepts(const ProjectSession& session, TimelineLaneKind lane, const SourceMedia& media, bool text) {
    if (text) return lane == TimelineLaneKind::text;
    const bool picture = media.hasVideo || media.isImage;
    switch (lane) {
        case TimelineLaneKind::storyline:
            return picture || media.hasAudio;
        case TimelineLaneKind::program:
            return session.timeline && !session.timeline->clips(TimelineTrackIDs::program).empty() &&
                   (picture || media.hasAudio);
        case TimelineLaneKind::overlay:
            return picture;
        case TimelineLaneKind::audio:
            return media.hasAudio && !media.isImage;
        case TimelineLaneKind::text:
        case TimelineLaneKind::layout:
        case TimelineLaneKind::speech:
            return false;
    }
    return false;
}

}  // namespace morvane::app::EditorSupport
