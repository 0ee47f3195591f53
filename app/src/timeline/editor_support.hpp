#pragma once

// What the timeline editor's operations share beyond single clips: finding a clip in the session, the
// closing up that ends every edit of a track, connections that follow a moved clip, and which lanes take
// which media.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"

namespace morvane::app {
class ProjectSession;
}

namespace morvane::app::EditorSupport {

/// A clip found in the document: its track and its place there.
struct Located {
    TimelineTrack* track = nullptr;
    std::size_t index = 0;
    [[nodiscard]] TimelineClip& clip() const { return track->clips[index]; }
};
[[nodiscard]] std::optional<Located> locate(ProjectSession& session, std::string_view clipID);

/// The storyline and the rough cut: clips end to end, in order.
[[nodiscard]] bool isSequential(const TimelineTrack& track);
/// One untouched storyline clip beside a rough cut is shown on source time.
[[nodiscard]] bool onSourceAxis(const ProjectSession& session, const TimelineTrack& track);
/// The program time of a position given on the axis the clip's track shows.
[[nodiscard]] RationalTime programTimeOf(const TimelineClip& clip, double axisSeconds, bool sourceAxis);

void sortByStart(std::vector<TimelineClip>& clips);
/// What every edit of a track ends with: the storyline and the rough cut close up and connected clips
/// follow their hosts; the other tracks keep their gaps and stay in time order.
void closeUp(ProjectSession& session, std::string_view trackID);

/// A connected clip that an edit moved keeps its new place: its offset from the host moves with it, or
/// the next re-placing of connected clips would put it back.
void keepConnection(TimelineClip& clip, RationalTime previousStart);
void moveKeepingConnection(TimelineClip& clip, RationalTime start);

/// What a source holds, by the media bin; the primary file without a bin entry by the session; an unknown
/// source is taken to have both picture and sound.
struct SourceMedia {
    bool hasVideo = true;
    bool hasAudio = true;
    bool isImage = false;
};
[[nodiscard]] SourceMedia mediaOf(const ProjectSession& session, const std::string& sourceID);
[[nodiscard]] bool isImage(const TimelineClip& clip, const ProjectSession& session);

[[nodiscard]] std::optional<std::string_view> trackIDForLane(TimelineLaneKind lane);
[[nodiscard]] std::optional<TimelineLaneKind> laneForTrack(std::string_view trackID);
/// Pictures go on the storyline, the overlay and a rough cut under review; sound on the audio track and
/// the storyline; text only on the text track.
[[nodiscard]] bool laneAccepts(const ProjectSession& session, TimelineLaneKind lane, const SourceMedia& media,
                               bool text);

}  // namespace morvane::app::EditorSupport
