#include "morvane/app/timeline/timeline_editor.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <set>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/time/clip_speed.hpp"
#include "timeline/clip_edits.hpp"
#include "timeline/editor_support.hpp"

namespace morvane::app {

namespace ClipSpeed = engine::ClipSpeed;
using namespace ClipEdits;
using namespace EditorSupport;

namespace {

constexpr std::string_view kWebcamSlot = "webcam";

// Split.

bool splitInPlace(ProjectSession& session, const Located& at, double seconds) {
    TimelineClip& clip = at.clip();
    auto right = splitOff(clip, programTimeOf(clip, seconds, onSourceAxis(session, *at.track)));
    if (!right) return false;
    at.track->clips.insert(at.track->clips.begin() + static_cast<std::ptrdiff_t>(at.index) + 1,
                           std::move(*right));
    return true;
}

// Trims.

// A normal trim without the closing up: the edge goes to `seconds` within the clip's limits.
bool trimInPlace(ProjectSession& session, const Located& at, TrimEdge edge, double seconds) {
    TimelineClip& clip = at.clip();
    RationalTime target = programTimeOf(clip, seconds, onSourceAxis(session, *at.track));
    if (isPacked(clip)) {
        // Cut at the target and drop the outer side: both sides must be worth a clip.
        const auto cut = locateAssemblyCut(clip, target);
        if (!cut) return false;
        const double left = cut->leftLength.seconds();
        const double right = programLength(clip).seconds() - left;
        if (std::min(left, right) + 1e-6 < TimelineEditor::minimumClipSeconds) return false;
    } else {
        target = edgeBounds(clip, edge, TimelineEditor::maxSourceEnd(clip, session)).clamped(target);
        if (target.compare(edge == TrimEdge::leading ? clip.timelineStart : programEnd(clip)) == 0)
            return false;
    }
    const RationalTime previousStart = clip.timelineStart;
    placeEdge(clip, edge, target);
    keepConnection(clip, previousStart);
    return true;
}

// The clips on the same track as `at` whose edge lies within the adjacency distance of its `edge`.
std::optional<std::size_t> neighbour(const Located& at, TrimEdge edge) {
    const TimelineClip& clip = at.clip();
    const RationalTime mine = edge == TrimEdge::leading ? clip.timelineStart : programEnd(clip);
    std::optional<std::size_t> best;
    double bestDistance = TimelineEditor::adjacencySeconds;
    for (std::size_t i = 0; i < at.track->clips.size(); ++i) {
        if (i == at.index) continue;
        const TimelineClip& other = at.track->clips[i];
        const RationalTime theirs = edge == TrimEdge::leading ? programEnd(other) : other.timelineStart;
        const double distance = std::abs(theirs.seconds() - mine.seconds());
        if (distance <= bestDistance) {
            best = i;
            bestDistance = distance;
        }
    }
    return best;
}

// How far the cut between `left` and `right` can move toward `wanted`, both staying at least the shortest
// clip and inside their sources; nothing when that is no move at all.
std::optional<RationalTime> rollAmount(const ProjectSession& session, const TimelineClip& left,
                                       const TimelineClip& right, RationalTime wanted) {
    const RationalTime leftEnd = programEnd(left);
    const EdgeBounds tail = edgeBounds(left, TrimEdge::trailing, TimelineEditor::maxSourceEnd(left, session));
    const EdgeBounds head =
        edgeBounds(right, TrimEdge::leading, TimelineEditor::maxSourceEnd(right, session));
    const RationalTime lower =
        std::max(tail.lower.subtracting(leftEnd), head.lower.subtracting(right.timelineStart));
    const RationalTime upper =
        std::min(tail.upper.subtracting(leftEnd), head.upper.subtracting(right.timelineStart));
    if (upper < lower) return std::nullopt;
    const RationalTime delta = std::clamp(wanted, lower, upper);
    if (std::abs(delta.seconds()) < TimelineEditor::unchangedSeconds) return std::nullopt;
    return delta;
}

// `left` gains at its tail what `right` gives up at its head.
void roll(TimelineClip& left, TimelineClip& right, RationalTime delta) {
    placeEdge(left, TrimEdge::trailing, programEnd(left).adding(delta));
    const RationalTime previous = right.timelineStart;
    placeEdge(right, TrimEdge::leading, previous.adding(delta));
    keepConnection(right, previous);
}

}  // namespace

// Asking.

std::optional<StorylineInsertPlacement> askStorylineInsertPlacement(UserInterfaceDelegate& delegate,
                                                                    const std::string& hostLabel,
                                                                    const std::string& informativeText) {
    static const std::vector<std::string> choices{"Split & Insert", "Place Before", "Place After", "Cancel"};
    const auto answer =
        delegate.ask("Insert into the middle of “" + hostLabel + "”?", informativeText, choices);
    if (!answer) return std::nullopt;
    switch (*answer) {
        case 0:
            return StorylineInsertPlacement::splitAndEmbed;
        case 1:
            return StorylineInsertPlacement::beforeHost;
        case 2:
            return StorylineInsertPlacement::afterHost;
        default:
            return std::nullopt;
    }
}

namespace TimelineEditor {

JoinSelectedClipsFailure JoinSelectedClipsFailure::timelineGap(double start, double end) {
    return {.kind = Case::timelineGap, .gapStart = start, .gapEnd = end};
}

JoinSelectedClipsFailure JoinSelectedClipsFailure::differentMedia(std::string left, std::string right) {
    return {.kind = Case::differentMedia, .left = std::move(left), .right = std::move(right)};
}

std::string JoinSelectedClipsFailure::message() const {
    switch (kind) {
        case Case::timelineGap:
            return "There’s a gap between these clips — the empty strip on Storyline. Close it, or select "
                   "clips "
                   "that actually touch.";
        case Case::differentMedia:
            return "“" + left + "” and “" + right +
                   "” are different files. Join only stitches pieces of the same recording.";
        case Case::needSelection:
            return "Select two or more adjacent Storyline clips to join.";
        case Case::wrongTrack:
            return "Join works on Storyline or Rough Cut.";
    }
    return {};
}

// Looking up.

const TimelineClip* clip(const ProjectSession& session, std::string_view clipID) {
    return session.timeline ? session.timeline->findClip(clipID) : nullptr;
}

std::optional<std::string> trackID(const ProjectSession& session, std::string_view clipID) {
    std::string id;
    if (!session.timeline || !session.timeline->findClip(clipID, &id)) return std::nullopt;
    return id;
}

bool isVideoClip(const ProjectSession& session, std::string_view clipID) {
    std::string track;
    const TimelineClip* found = session.timeline ? session.timeline->findClip(clipID, &track) : nullptr;
    if (!found || found->isTextLike() || track == TimelineTrackIDs::audio) return false;
    return isImage(*found, session) || mediaOf(session, found->sourceID).hasVideo;
}

bool isTextClip(const ProjectSession& session, std::string_view clipID) {
    const TimelineClip* found = clip(session, clipID);
    return found && found->isTextLike();
}

bool clipSupportsPlaybackRate(const TimelineClip& clip, const ProjectSession& session) {
    return !clip.isTextLike() && !isImage(clip, session);
}

bool usesProgramAxis(TimelineTrackKind kind, const ProjectSession& session) {
    switch (kind) {
        case TimelineTrackKind::source:
            return TimelinePlanBridge::storylineUsesProgramAxis(session);
        case TimelineTrackKind::text:
            return false;
        case TimelineTrackKind::program:
        case TimelineTrackKind::overlay:
        case TimelineTrackKind::audio:
            return true;
    }
    return true;
}

std::optional<RationalTime> maxSourceEnd(const TimelineClip& clip, const ProjectSession& session) {
    if (clip.isTextLike() || isImage(clip, session)) return secondsTime(stillSourceSeconds);
    if (const MediaBinEntry* entry = session.binEntry(clip.sourceID)) {
        if (entry->durationSeconds > 0.0) return secondsTime(entry->durationSeconds);
        return std::nullopt;
    }
    if (clip.sourceID == session.primarySourceID && session.sourceDurationSeconds() > 0.0)
        return secondsTime(session.sourceDurationSeconds());
    return std::nullopt;
}

// Split.

bool splitClip(ProjectSession& session, std::string_view clipID, double atSeconds) {
    if (!std::isfinite(atSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at || !splitInPlace(session, *at, atSeconds)) return false;
    closeUp(session, at->track->id);
    return true;
}

int splitClips(ProjectSession& session, const std::vector<std::string>& clipIDs, double atSeconds) {
    if (!std::isfinite(atSeconds)) return 0;
    int count = 0;
    std::set<std::string> touched;
    for (const auto& id : clipIDs) {
        const auto at = locate(session, id);
        if (at && splitInPlace(session, *at, atSeconds)) {
            ++count;
            touched.insert(at->track->id);
        }
    }
    for (const auto& track : touched)
        closeUp(session, track);
    return count;
}

int splitAllClipsAtPlayhead(ProjectSession& session, double atSeconds) {
    if (!session.timeline || !std::isfinite(atSeconds)) return 0;
    std::vector<std::string> under;
    for (const auto& track : session.timeline->tracks) {
        const bool sourceAxis = onSourceAxis(session, track);
        for (const auto& clip : track.clips) {
            const RationalTime t = programTimeOf(clip, atSeconds, sourceAxis);
            if (clip.timelineStart < t && t < programEnd(clip)) under.push_back(clip.id);
        }
    }
    return splitClips(session, under, atSeconds);
}

// Trim.

bool trimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds) {
    if (!std::isfinite(toSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at || !trimInPlace(session, *at, edge, toSeconds)) return false;
    closeUp(session, at->track->id);
    return true;
}

bool rippleTrimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds) {
    if (!std::isfinite(toSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    if (isSequential(*at->track)) return trimClip(session, clipID, edge, toSeconds);
    const RationalTime start = at->clip().timelineStart;
    const RationalTime end = programEnd(at->clip());
    const RationalTime length = programLength(at->clip());
    if (!trimInPlace(session, *at, edge, toSeconds)) return false;
    TimelineClip& trimmed = at->clip();
    if (edge == TrimEdge::leading) moveKeepingConnection(trimmed, start);
    const RationalTime change = programLength(trimmed).subtracting(length);
    const std::string trimmedID = trimmed.id;
    for (auto& later : at->track->clips) {
        if (later.id != trimmedID && later.timelineStart.seconds() >= end.seconds() - unchangedSeconds)
            moveKeepingConnection(later, later.timelineStart.adding(change));
    }
    TimelineMagneticBridge::resolveConnectedClips(session);
    closeUp(session, at->track->id);
    return true;
}

bool rollTrimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds) {
    if (!std::isfinite(toSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    const auto other = neighbour(*at, edge);
    if (!other) return false;
    TimelineClip& mine = at->clip();
    TimelineClip& theirs = at->track->clips[*other];
    TimelineClip& left = edge == TrimEdge::trailing ? mine : theirs;
    TimelineClip& right = edge == TrimEdge::trailing ? theirs : mine;
    const RationalTime edgeAt = edge == TrimEdge::leading ? mine.timelineStart : programEnd(mine);
    const auto delta = rollAmount(session, left, right, secondsTime(toSeconds).subtracting(edgeAt));
    if (!delta) return false;
    roll(left, right, *delta);
    closeUp(session, at->track->id);
    return true;
}

bool trimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds,
              TrimDragMode mode) {
    switch (mode) {
        case TrimDragMode::normal:
            return trimClip(session, clipID, edge, toSeconds);
        case TrimDragMode::ripple:
            return rippleTrimClip(session, clipID, edge, toSeconds);
        case TrimDragMode::roll:
            return rollTrimClip(session, clipID, edge, toSeconds);
    }
    return false;
}

// Slip and slide.

bool slipClipToSourceIn(ProjectSession& session, std::string_view clipID, double sourceInSeconds) {
    if (!std::isfinite(sourceInSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    TimelineClip& clip = at->clip();
    if (isSourceless(clip) || programLength(clip).seconds() + 1e-6 < minimumClipSeconds) return false;
    // The whole window (every range of a packed clip) moves together and stays inside the source.
    const std::optional<RationalTime> limit = maxSourceEnd(clip, session);
    const RationalTime earliest = std::min(RationalTime::zero.subtracting(clip.sourceIn), RationalTime::zero);
    const RationalTime latest =
        limit ? std::max(limit->subtracting(clip.sourceOut), RationalTime::zero) : RationalTime::zero;
    const RationalTime delta =
        std::clamp(secondsTime(sourceInSeconds).subtracting(clip.sourceIn), earliest, latest);
    if (std::abs(delta.seconds()) < unchangedSeconds) return false;
    const auto shift = [&](std::optional<std::vector<TimelineSourceRange>>& ranges) {
        if (!ranges) return;
        for (auto& range : *ranges) {
            range.sourceIn = range.sourceIn.adding(delta);
            range.sourceOut = range.sourceOut.adding(delta);
        }
    };
    clip.sourceIn = clip.sourceIn.adding(delta);
    clip.sourceOut = clip.sourceOut.adding(delta);
    shift(clip.assemblyRanges);
    shift(clip.originSourceRanges);
    closeUp(session, at->track->id);
    return true;
}

bool slideClipToProgramStart(ProjectSession& session, std::string_view clipID, double programStartSeconds) {
    if (!std::isfinite(programStartSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at || onSourceAxis(session, *at->track)) return false;
    const auto previous = neighbour(*at, TrimEdge::leading);
    const auto next = neighbour(*at, TrimEdge::trailing);
    if (!previous || !next) return false;
    TimelineClip& clip = at->clip();
    TimelineClip& before = at->track->clips[*previous];
    TimelineClip& after = at->track->clips[*next];
    // The neighbours take the move as one roll: `before` grows at its tail by what `after` loses at its head.
    const auto delta =
        rollAmount(session, before, after, secondsTime(programStartSeconds).subtracting(clip.timelineStart));
    if (!delta) return false;
    roll(before, after, *delta);
    moveKeepingConnection(clip, clip.timelineStart.adding(*delta));
    closeUp(session, at->track->id);
    return true;
}

// Speed, sound and the rest.

bool setPlaybackRate(ProjectSession& session, const std::vector<std::string>& clipIDs, double rate) {
    if (!std::isfinite(rate)) return false;
    const std::optional<double> stored = ClipSpeed::needsScale(rate) ? std::optional(rate) : std::nullopt;
    std::set<std::string> touched;
    for (const auto& id : clipIDs) {
        const auto at = locate(session, id);
        if (!at || !clipSupportsPlaybackRate(at->clip(), session)) continue;
        TimelineClip& clip = at->clip();
        if (std::abs(ClipSpeed::resolved(clip.playbackRate) - ClipSpeed::resolved(stored)) < unchangedSeconds)
            continue;
        setRate(clip, stored);
        touched.insert(at->track->id);
    }
    for (const auto& track : touched) {
        if (isSequential(*session.timeline->track(track))) closeUp(session, track);
    }
    return !touched.empty();
}

bool applySpeedRegion(ProjectSession& session, std::string_view clipID, double fromProgramSeconds,
                      double toProgramSeconds, double rate) {
    if (!std::isfinite(fromProgramSeconds) || !std::isfinite(toProgramSeconds) || !std::isfinite(rate))
        return false;
    const auto at = locate(session, clipID);
    if (!at || !clipSupportsPlaybackRate(at->clip(), session)) return false;
    const bool sourceAxis = onSourceAxis(session, *at->track);
    // Work on a copy so that a refused split leaves the document as it was.
    TimelineClip middle = at->clip();
    const RationalTime start = middle.timelineStart;
    const RationalTime end = programEnd(middle);
    const auto onEdge = [&](RationalTime t) {
        t = std::clamp(t, start, end);
        for (const RationalTime edge : {start, end}) {
            const double offset = t.seconds() - edge.seconds();
            if (offset >= -0.02 && offset <= 0.05) return edge;
        }
        return t;
    };
    const RationalTime from = onEdge(programTimeOf(middle, fromProgramSeconds, sourceAxis));
    const RationalTime to = onEdge(programTimeOf(middle, toProgramSeconds, sourceAxis));
    if (to.seconds() - from.seconds() <= 0.5) return false;

    std::vector<TimelineClip> pieces;
    if (start < from) {
        auto rest = splitOff(middle, from);
        if (!rest) return false;
        pieces.push_back(std::move(middle));
        middle = std::move(*rest);
    }
    std::optional<TimelineClip> tail;
    if (to < end) {
        tail = splitOff(middle, to);
        if (!tail) return false;
    }
    const std::optional<double> stored = ClipSpeed::needsScale(rate) ? std::optional(rate) : std::nullopt;
    const bool rateChanges =
        std::abs(ClipSpeed::resolved(middle.playbackRate) - ClipSpeed::resolved(stored)) >= unchangedSeconds;
    if (!rateChanges) return false;
    setRate(middle, stored);
    pieces.push_back(std::move(middle));
    if (tail) pieces.push_back(std::move(*tail));

    auto& clips = at->track->clips;
    const auto place = clips.erase(clips.begin() + static_cast<std::ptrdiff_t>(at->index));
    clips.insert(place, std::make_move_iterator(pieces.begin()), std::make_move_iterator(pieces.end()));
    closeUp(session, at->track->id);
    return true;
}

bool setAudioGain(ProjectSession& session, std::string_view clipID, double gain) {
    if (std::isnan(gain)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    const double held = std::clamp(gain, 0.0, 2.0);
    if (at->clip().audioGain == held) return false;
    at->clip().audioGain = held;
    return true;
}

bool setClipSourceWindow(ProjectSession& session, std::string_view clipID, RationalTime sourceIn,
                         RationalTime sourceOut) {
    if (!sourceIn.isValid() || !sourceOut.isValid() || !(sourceIn < sourceOut)) return false;
    const auto at = locate(session, clipID);
    // A packed clip's window is the bounds of its ranges; it changes by trimming them.
    if (!at || isPacked(at->clip())) return false;
    TimelineClip& clip = at->clip();
    if (clip.sourceIn == sourceIn && clip.sourceOut == sourceOut) return false;
    clip.sourceIn = sourceIn;
    clip.sourceOut = sourceOut;
    closeUp(session, at->track->id);
    return true;
}

bool setTrackRole(ProjectSession& session, std::string_view trackID, std::optional<TimelineTrackRole> role) {
    TimelineTrack* track = session.timeline ? session.timeline->track(trackID) : nullptr;
    if (!track || track->role == role) return false;
    track->role = role;
    return true;
}

bool connectClip(ProjectSession& session, std::string_view clipID, std::string_view hostID) {
    const auto at = locate(session, clipID);
    if (!at || isSequential(*at->track)) return false;
    for (const auto& host : TimelinePlanBridge::primaryVideoClips(session)) {
        if (host.id != hostID) continue;
        TimelineClip& clip = at->clip();
        const RationalTime offset = clip.timelineStart.subtracting(host.timelineStart);
        if (clip.connectedToClipID == host.id && clip.connectedOffset == offset) return false;
        clip.connectedToClipID = host.id;
        clip.connectedOffset = offset;
        return true;
    }
    return false;
}

void prepareClipForLane(TimelineClip& clip, TimelineLaneKind lane) {
    if (clip.slotID == kWebcamSlot && lane != TimelineLaneKind::overlay) clip.slotID.reset();
    if (lane == TimelineLaneKind::storyline || lane == TimelineLaneKind::program) {
        // Storyline clips are the hosts; they hang on nothing.
        clip.connectedToClipID.reset();
        clip.connectedOffset.reset();
    }
    if (lane == TimelineLaneKind::audio) {
        clip.transform.reset();
        clip.slotID.reset();
        clip.reframeKeyframes.reset();
        clip.matte.reset();
        clip.presentationStyle.reset();
        clip.cursorStyle.reset();
        clip.cursorTrackID.reset();
        clip.zoomRegions.reset();
    }
}

void healMisplacedAudioOnOverlay(ProjectSession& session) {
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
    auto& audio = *session.timeline->track(TimelineTrackIDs::audio);
    audio.clips.insert(audio.clips.end(), moved.begin(), moved.end());
    sortByStart(audio.clips);
}

}  // namespace TimelineEditor

}  // namespace morvane::app
