#pragma once

/// Keeps the timeline and the edit plan equivalent: which track supplies the main picture, the first
/// timeline of a project, the plan rebuilt from the timeline after every edit, and the fold of an accepted
/// rough cut into the storyline. The storyline is the "source" track; a rough cut under review sits on
/// "program". Clips on the program axis sit end to end; source time is used only while the storyline is one
/// untouched clip with a rough cut beside it, so a proposal shows against the whole recording.
///
///     TimelinePlanBridge::bootstrapSourceTimeline(session, "src1");   // one clip for the whole recording
///     session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
///     TimelinePlanBridge::promoteProgramToStoryline(session);         // Accept

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"

namespace morvane::app {

class ProjectSession;

namespace TimelinePlanBridge {

/// Storyline content that has been through an accepted cut: two or more clips, or one whose assembly
/// ranges or word origins aren't empty.
[[nodiscard]] bool storylineIsPackedCut(const std::vector<TimelineClip>& clips);
[[nodiscard]] bool storylineUsesProgramAxis(const ProjectSession& session);
/// The length of the timeline's axis in seconds.
[[nodiscard]] double timelineAxisDuration(const ProjectSession& session);
/// The program's length in seconds: the end of the last clip that supplies the main picture; 0 without one.
[[nodiscard]] double programDurationSeconds(const ProjectSession& session);
/// The clips that supply the main picture: a rough cut under review, else the storyline.
[[nodiscard]] std::vector<TimelineClip> primaryVideoClips(const ProjectSession& session);
/// The clips in source order, laid end to end from zero at their speeds.
[[nodiscard]] std::vector<TimelineClip> sequentialProgramClips(std::vector<TimelineClip> clips);
/// The program length of a clip: its source span at its speed.
[[nodiscard]] RationalTime programDuration(const TimelineClip& clip);
[[nodiscard]] int activeTranscriptSegmentCount(const ProjectSession& session);
/// The transcript segments the primary clips of the active source play, or nothing when none says.
[[nodiscard]] std::optional<std::set<int>> activeSegmentIDs(const ProjectSession& session);
/// Whether an overlay clip covers program time `seconds`.
[[nodiscard]] bool hasOverlayCoverage(double seconds, const ProjectSession& session);

/// The plan of the session's timeline, or nothing without a primary source or with nothing to render.
[[nodiscard]] std::optional<engine::EditPlan> rebuildEditPlan(const ProjectSession& session);

/// The five default tracks with no clips.
void bootstrapEmptyTimeline(ProjectSession& session);
/// One clip on the storyline for the whole primary source. False, with nothing changed, when there is no
/// primary file or its duration isn't known.
bool bootstrapSourceTimeline(ProjectSession& session, const std::string& sourceID);
/// Closes every gap on the storyline (it is magnetic) and re-places the connected clips.
void compactSourceTrack(ProjectSession& session);
/// Accept: folds the rough cut into one storyline clip per source, with its ranges, and empties it.
void promoteProgramToStoryline(ProjectSession& session);
/// A clip as the plan's resolver would see it, for one-off analysis.
[[nodiscard]] engine::ProgramClip programClip(const TimelineClip& clip, const std::string& trackID);
/// The text operation payload of a text clip, or nothing for another kind.
[[nodiscard]] std::optional<engine::EditPlanTextPayload> textPayload(const TimelineClip& clip);

}  // namespace TimelinePlanBridge

/// Connected clips: one offset to one host on the storyline, reapplied after every structural edit.
namespace TimelineMagneticBridge {

/// Connects `clip` to the primary clip playing at `programSeconds` (or the one starting nearest to it).
void attachToSpine(TimelineClip& clip, double programSeconds, const ProjectSession& session);
/// Puts every connected overlay, audio and text clip back at its host's start plus its offset. A clip
/// whose host has gone stays where it is.
void resolveConnectedClips(ProjectSession& session);

}  // namespace TimelineMagneticBridge

}  // namespace morvane::app
