// The timeline editor's operations that change which clips a track holds, or their order: move, insert,
// add, delete and join.

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "timeline/clip_edits.hpp"
#include "timeline/editor_support.hpp"

namespace morvane::app {

using namespace ClipEdits;
using namespace EditorSupport;

namespace {

constexpr std::string_view kTextSourceID = "text";
// Seconds compared against a distance come from ticks: 2.02 s less 2 s is a hair over 0.02 s.
constexpr double kSecondsTolerance = 1e-9;

// Where a clip goes into the storyline or the rough cut.
struct InsertionPlan {
    std::size_t index = 0;    ///< the clip goes before the clip now at this index
    bool splitsHost = false;  ///< the clip before `index` is first split at the insertion time
};

double startSeconds(const TimelineClip& clip) {
    return clip.timelineStart.seconds();
}

double endSeconds(const TimelineClip& clip) {
    return programEnd(clip).seconds();
}

// The first clip, other than `excluding`, that `t` lies more than the shortest clip inside.
std::optional<std::size_t> midClipHost(const std::vector<TimelineClip>& clips, double t,
                                       std::optional<std::size_t> excluding) {
    t = std::max(t, 0.0);
    for (std::size_t i = 0; i < clips.size(); ++i) {
        if (i == excluding) continue;
        if (t > startSeconds(clips[i]) + TimelineEditor::minimumClipSeconds &&
            t < endSeconds(clips[i]) - TimelineEditor::minimumClipSeconds)
            return i;
    }
    return std::nullopt;
}

// Plans an insertion at program time `t` among the clips as they stand (`excluding` the one being moved):
// at the end when `t` is at or past it, by `placement` inside a clip, else at the nearest clip boundary.
InsertionPlan planInsertion(const std::vector<TimelineClip>& clips, double t,
                            std::optional<std::size_t> excluding, StorylineInsertPlacement placement,
                            bool allowSplit) {
    t = std::max(t, 0.0);
    std::vector<std::size_t> others;
    double total = 0.0;
    for (std::size_t i = 0; i < clips.size(); ++i) {
        if (i == excluding) continue;
        others.push_back(i);
        total = std::max(total, endSeconds(clips[i]));
    }
    if (others.empty() || t >= total - TimelineEditor::insertMarginSeconds) return {clips.size()};
    if (const auto host = midClipHost(clips, t, excluding)) {
        const TimelineClip& h = clips[*host];
        switch (placement) {
            case StorylineInsertPlacement::beforeHost:
                return {*host};
            case StorylineInsertPlacement::afterHost:
                return {*host + 1};
            case StorylineInsertPlacement::splitAndEmbed:
                if (allowSplit) return {*host + 1, true};
                return {t < startSeconds(h) + 0.5 * (endSeconds(h) - startSeconds(h)) ? *host : *host + 1};
        }
    }
    InsertionPlan best{clips.size()};
    double bestDistance = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k <= others.size(); ++k) {
        double distance = std::numeric_limits<double>::infinity();
        if (k < others.size()) distance = std::abs(t - startSeconds(clips[others[k]]));
        if (k > 0) distance = std::min(distance, std::abs(t - endSeconds(clips[others[k - 1]])));
        if (distance < bestDistance) {
            bestDistance = distance;
            best.index = k < others.size() ? others[k] : clips.size();
        }
    }
    return best;
}

void applyInsertion(std::vector<TimelineClip>& clips, TimelineClip clip, std::size_t index, bool splitsHost,
                    RationalTime at) {
    if (splitsHost && index > 0) {
        if (auto right = splitOff(clips[index - 1], at))
            clips.insert(clips.begin() + static_cast<std::ptrdiff_t>(index), std::move(*right));
    }
    clips.insert(clips.begin() + static_cast<std::ptrdiff_t>(index), std::move(clip));
    compactProgramAxis(clips);
}

// An insertion time on a storyline still shown on source time is read against its one clip.
double insertionSeconds(const ProjectSession& session, const TimelineTrack& track, double seconds) {
    if (onSourceAxis(session, track) && track.clips.size() == 1)
        return programTimeOf(track.clips.front(), seconds, true).seconds();
    return seconds;
}

// The placement for a clip landing at `t`: as given, else asked of the user when it lands inside a clip
// (nothing: the user cancelled), else split and embed.
std::optional<StorylineInsertPlacement> choosePlacement(const std::vector<TimelineClip>& clips, double t,
                                                        std::optional<std::size_t> excluding,
                                                        const InsertPlacementOptions& options) {
    if (options.placement) return options.placement;
    const auto host = midClipHost(clips, t, excluding);
    if (!host || !options.delegate) return StorylineInsertPlacement::splitAndEmbed;
    const std::string& label = clips[*host].label;
    return askStorylineInsertPlacement(
        *options.delegate, label,
        "Split “" + label +
            "” and put the clip between its halves, or place it before or after the whole clip.");
}

// Moves a clip to another place in the storyline or the rough cut.
bool moveWithinSequence(ProjectSession& session, const Located& at, double seconds,
                        StorylineInsertPlacement placement, bool allowSplit) {
    auto& clips = at.track->clips;
    if (clips.size() < 2) return false;
    const double t = insertionSeconds(session, *at.track, seconds);
    const InsertionPlan plan = planInsertion(clips, t, at.index, placement, allowSplit);
    if (!plan.splitsHost && (plan.index == at.index || plan.index == at.index + 1)) return false;
    TimelineClip moving = std::move(clips[at.index]);
    clips.erase(clips.begin() + static_cast<std::ptrdiff_t>(at.index));
    const std::size_t index = plan.index > at.index ? plan.index - 1 : plan.index;
    applyInsertion(clips, std::move(moving), index, plan.splitsHost, secondsTime(t));
    closeUp(session, at.track->id);
    return true;
}

// Puts `clip` on an overlay, audio or text track at `seconds`, connected to the storyline clip there.
void placeConnected(ProjectSession& session, TimelineTrack& track, TimelineClip clip, double seconds) {
    const double t = std::max(seconds, 0.0);
    clip.moveTo(secondsTime(t));
    TimelineMagneticBridge::attachToSpine(clip, t, session);
    track.clips.push_back(std::move(clip));
    closeUp(session, track.id);
}

void deselect(ProjectSession& session, const std::string& clipID) {
    session.selectedClipIDs.erase(clipID);
    if (session.selectedClipID == clipID) {
        session.selectedClipID =
            session.selectedClipIDs.empty() ? std::nullopt : std::optional(*session.selectedClipIDs.begin());
    }
}

std::optional<std::string> addTitle(ProjectSession& session, const std::string& text, double atSeconds,
                                    double durationSeconds, engine::TextClipStyle style) {
    if (!std::isfinite(atSeconds) || !std::isfinite(durationSeconds) || !(durationSeconds > 0.0))
        return std::nullopt;
    TimelineTrack* track = session.timeline ? session.timeline->track(TimelineTrackIDs::text) : nullptr;
    if (!track) return std::nullopt;
    TimelineClip clip{.id = makeUUID(),
                      .sourceID = std::string(kTextSourceID),
                      .label = text,
                      .sourceIn = RationalTime::zero,
                      .sourceOut = secondsTime(durationSeconds),
                      .timelineStart = RationalTime::zero,
                      .textContent = text,
                      .textStyle = std::move(style),
                      .kind = std::string(TimelineClipKinds::text)};
    const std::string id = clip.id;
    placeConnected(session, *track, std::move(clip), atSeconds);
    return id;
}

template <class T>
void appendUnique(std::optional<std::vector<T>>& into, const std::optional<std::vector<T>>& from,
                  std::set<T>& seen) {
    if (!from) return;
    if (!into) into.emplace();
    for (const T& value : *from) {
        if (seen.insert(value).second) into->push_back(value);
    }
}

template <class T>
void appendAll(std::optional<std::vector<T>>& into, const std::optional<std::vector<T>>& from) {
    if (!from || from->empty()) return;
    if (!into) into.emplace();
    into->insert(into->end(), from->begin(), from->end());
}

// The selected clips of one track, sorted by position; empty when they aren't on one track.
std::vector<const TimelineClip*> selectedClipsInOrder(const ProjectSession& session, std::string& trackID) {
    std::set<std::string> ids = session.selectedClipIDs;
    if (session.selectedClipID) ids.insert(*session.selectedClipID);
    std::vector<const TimelineClip*> clips;
    trackID.clear();
    for (const auto& id : ids) {
        std::string track;
        const TimelineClip* clip = session.timeline->findClip(id, &track);
        if (!clip) continue;
        if (!trackID.empty() && track != trackID) return {};
        trackID = track;
        clips.push_back(clip);
    }
    std::stable_sort(clips.begin(), clips.end(), [](const TimelineClip* a, const TimelineClip* b) {
        return a->timelineStart < b->timelineStart;
    });
    return clips;
}

}  // namespace

namespace TimelineEditor {

// Move and insert.

bool moveClip(ProjectSession& session, std::string_view clipID, double toProgramSeconds) {
    if (!std::isfinite(toProgramSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    if (isSequential(*at->track))
        return moveWithinSequence(session, *at, toProgramSeconds, StorylineInsertPlacement::splitAndEmbed,
                                  false);
    TimelineClip& clip = at->clip();
    const double t = std::max(toProgramSeconds, 0.0);
    if (std::abs(t - clip.timelineStart.seconds()) < unchangedSeconds) return false;
    if (clip.connectedToClipID) {
        TimelineClip moved = clip;
        TimelineMagneticBridge::attachToSpine(moved, t, session);
        clip = std::move(moved);
    } else {
        clip.moveTo(secondsTime(t));
    }
    closeUp(session, at->track->id);
    return true;
}

bool moveClip(ProjectSession& session, std::string_view clipID, TimelineLaneKind toLane,
              double atProgramSeconds, const InsertPlacementOptions& options) {
    if (!std::isfinite(atProgramSeconds)) return false;
    const auto at = locate(session, clipID);
    if (!at) return false;
    const auto fromLane = laneForTrack(at->track->id);
    const auto targetID = trackIDForLane(toLane);
    if (!fromLane || !targetID || !canMoveClip(session, clipID, *fromLane, toLane)) return false;
    TimelineTrack* target = session.timeline->track(*targetID);
    if (!target) return false;

    const bool intoSequence = isSequential(*target);
    std::optional<StorylineInsertPlacement> placement = StorylineInsertPlacement::splitAndEmbed;
    if (intoSequence) {
        const bool sameTrack = target == at->track;
        placement = choosePlacement(target->clips, insertionSeconds(session, *target, atProgramSeconds),
                                    sameTrack ? std::optional(at->index) : std::nullopt, options);
        if (!placement) return false;
        if (sameTrack) return moveWithinSequence(session, *at, atProgramSeconds, *placement, true);
    } else if (target == at->track) {
        return moveClip(session, clipID, atProgramSeconds);
    }

    TimelineClip moving = std::move(at->clip());
    at->track->clips.erase(at->track->clips.begin() + static_cast<std::ptrdiff_t>(at->index));
    prepareClipForLane(moving, toLane);
    closeUp(session, at->track->id);
    if (intoSequence) {
        const double t = insertionSeconds(session, *target, atProgramSeconds);
        const InsertionPlan plan = planInsertion(target->clips, t, std::nullopt, *placement, true);
        applyInsertion(target->clips, std::move(moving), plan.index, plan.splitsHost, secondsTime(t));
        closeUp(session, target->id);
    } else {
        placeConnected(session, *target, std::move(moving), atProgramSeconds);
    }
    return true;
}

bool canMoveClip(const ProjectSession& session, std::string_view clipID, TimelineLaneKind from,
                 TimelineLaneKind to) {
    const TimelineClip* found = clip(session, clipID);
    if (!found || !trackIDForLane(from) || !trackIDForLane(to)) return false;
    if (from == to) return true;
    SourceMedia media = mediaOf(session, found->sourceID);
    media.isImage = media.isImage || found->kind == TimelineClipKinds::image;
    return laneAccepts(session, to, media, found->isTextLike());
}

bool insertBinMedia(ProjectSession& session, const std::string& sourceID, double atProgramSeconds,
                    TimelineLaneKind lane, MediaDropMode mode, const InsertPlacementOptions& options) {
    if (!std::isfinite(atProgramSeconds) || !session.timeline) return false;
    const MediaBinEntry* entry = session.binEntry(sourceID);
    const bool primaryFile = !entry && sourceID == session.primarySourceID && session.mediaURL;
    if (!entry && !primaryFile) return false;
    const double duration = entry ? entry->durationSeconds : session.sourceDurationSeconds();
    const SourceMedia media = mediaOf(session, sourceID);
    const auto targetID = trackIDForLane(lane);
    TimelineTrack* target = targetID ? session.timeline->track(*targetID) : nullptr;
    if (!(duration > 0.0) || !std::isfinite(duration) || !target || !laneAccepts(session, lane, media, false))
        return false;

    TimelineClip clip{
        .id = makeUUID(),
        .sourceID = sourceID,
        .label = entry ? entry->label : session.mediaURL->filename().string(),
        .sourceIn = RationalTime::zero,
        .sourceOut = secondsTime(duration),
        .timelineStart = RationalTime::zero,
        .kind = std::string(media.isImage ? TimelineClipKinds::image : TimelineClipKinds::media)};
    std::optional<StorylineInsertPlacement> placement;
    const double t = insertionSeconds(session, *target, atProgramSeconds);
    if (isSequential(*target)) {
        placement = choosePlacement(target->clips, t, std::nullopt, options);
        if (!placement) return false;
    }
    // The plan names every source but the primary by its file.
    if (entry && sourceID != session.primarySourceID && !session.extraSources.contains(sourceID))
        session.extraSources[sourceID] = entry->resolvedURL(session.projectURL);

    if (placement) {
        const InsertionPlan plan = planInsertion(target->clips, t, std::nullopt, *placement, true);
        applyInsertion(target->clips, std::move(clip), plan.index, plan.splitsHost, secondsTime(t));
        closeUp(session, target->id);
        return true;
    }
    double at = std::max(atProgramSeconds, 0.0);
    if (mode == MediaDropMode::sequential) {
        // Laid one after another: a drop on a clip goes after it (and after any clip that then follows on).
        for (const auto& other : target->clips) {
            if (startSeconds(other) <= at && at < endSeconds(other)) at = endSeconds(other);
        }
    }
    placeConnected(session, *target, std::move(clip), at);
    return true;
}

std::optional<std::string> addOverlayMedia(ProjectSession& session, const std::filesystem::path& file,
                                           double atProgramSeconds, const OverlayMediaOptions& options) {
    if (!std::isfinite(atProgramSeconds) || !session.timeline) return std::nullopt;
    TimelineTrack* overlay = session.timeline->track(TimelineTrackIDs::overlay);
    if (!overlay) return std::nullopt;
    const std::filesystem::path wanted = file.lexically_normal();
    const auto entry =
        std::find_if(session.mediaBin.begin(), session.mediaBin.end(), [&](const MediaBinEntry& e) {
            return e.resolvedURL(session.projectURL).lexically_normal() == wanted;
        });
    std::string sourceID;
    double duration = options.durationHint.value_or(0.0);
    std::string label = file.filename().string();
    if (entry != session.mediaBin.end()) {
        sourceID = entry->id;
        label = entry->label;
        if (entry->durationSeconds > 0.0) duration = entry->durationSeconds;
    } else {
        const auto known =
            std::find_if(session.extraSources.begin(), session.extraSources.end(),
                         [&](const auto& pair) { return pair.second.lexically_normal() == wanted; });
        std::set<std::string> taken;
        for (const auto& [id, path] : session.extraSources)
            taken.insert(id);
        if (known != session.extraSources.end()) {
            sourceID = known->first;
        } else if (options.preferredSourceID && !session.binEntry(*options.preferredSourceID) &&
                   !taken.contains(*options.preferredSourceID)) {
            sourceID = *options.preferredSourceID;
        } else {
            sourceID = session.nextSourceID(taken);
        }
    }
    if (!std::isfinite(duration) || !(duration > 0.0)) return std::nullopt;
    if (sourceID != session.primarySourceID) session.extraSources[sourceID] = file;
    TimelineClip clip{.id = makeUUID(),
                      .sourceID = sourceID,
                      .label = label,
                      .sourceIn = RationalTime::zero,
                      .sourceOut = secondsTime(duration),
                      .timelineStart = RationalTime::zero,
                      .kind = std::string(engine::CompositionBuilder::isImageFile(file.string())
                                              ? TimelineClipKinds::image
                                              : TimelineClipKinds::media)};
    const std::string id = clip.id;
    placeConnected(session, *overlay, std::move(clip), atProgramSeconds);
    return id;
}

std::optional<std::string> addTextClip(ProjectSession& session, const std::string& text,
                                       double atProgramSeconds, double durationSeconds) {
    return addTitle(session, text, atProgramSeconds, durationSeconds, engine::TextClipStyle{});
}

std::optional<std::string> addAnnotation(ProjectSession& session, const std::string& text,
                                         double atProgramSeconds, double durationSeconds) {
    return addTitle(session, text, atProgramSeconds, durationSeconds, annotationStyle());
}

engine::TextClipStyle annotationStyle() {
    engine::TextClipStyle style = engine::TextClipStyle::forPreset(engine::TextStylePreset::lowerThird);
    style.backgroundRed = 0.0;
    style.backgroundGreen = 0.0;
    style.backgroundBlue = 0.0;
    style.backgroundAlpha = 0.6;
    return style;
}

bool updateTextClip(ProjectSession& session, std::string_view clipID, const std::string& content,
                    const engine::TextClipStyle& style) {
    const auto at = locate(session, clipID);
    if (!at || !at->clip().isTextLike()) return false;
    TimelineClip& clip = at->clip();
    if (clip.textContent == content && clip.textStyle == style) return false;
    clip.textContent = content;
    clip.label = content;
    clip.textStyle = style;
    return true;
}

// Delete.

bool deleteClip(ProjectSession& session, std::string_view clipID) {
    const auto at = locate(session, clipID);
    if (!at) return false;
    const std::string id(clipID);
    at->track->clips.erase(at->track->clips.begin() + static_cast<std::ptrdiff_t>(at->index));
    deselect(session, id);
    closeUp(session, at->track->id);
    return true;
}

int deleteSelectedClips(ProjectSession& session) {
    std::set<std::string> ids = session.selectedClipIDs;
    if (session.selectedClipID) ids.insert(*session.selectedClipID);
    std::set<std::string> touched;
    int count = 0;
    for (const auto& id : ids) {
        const auto at = locate(session, id);
        if (!at) continue;
        at->track->clips.erase(at->track->clips.begin() + static_cast<std::ptrdiff_t>(at->index));
        touched.insert(at->track->id);
        ++count;
    }
    session.selectedClipIDs.clear();
    session.selectedClipID.reset();
    for (const auto& track : touched)
        closeUp(session, track);
    return count;
}

// Join.

std::optional<JoinSelectedClipsFailure> diagnoseJoinSelectedClips(const ProjectSession& session) {
    using Failure = JoinSelectedClipsFailure;
    if (!session.timeline) return Failure{};
    std::set<std::string> ids = session.selectedClipIDs;
    if (session.selectedClipID) ids.insert(*session.selectedClipID);
    if (ids.size() < 2) return Failure{};
    std::string trackID;
    const auto clips = selectedClipsInOrder(session, trackID);
    if (clips.empty() || (trackID != TimelineTrackIDs::source && trackID != TimelineTrackIDs::program))
        return Failure{.kind = Failure::Case::wrongTrack};
    if (clips.size() < 2) return Failure{};
    for (std::size_t i = 1; i < clips.size(); ++i) {
        const double end = endSeconds(*clips[i - 1]);
        const double start = startSeconds(*clips[i]);
        if (start - end > touchingSeconds + kSecondsTolerance) return Failure::timelineGap(end, start);
    }
    for (std::size_t i = 1; i < clips.size(); ++i) {
        if (clips[i - 1]->sourceID != clips[i]->sourceID)
            return Failure::differentMedia(clips[i - 1]->label, clips[i]->label);
    }
    return std::nullopt;
}

bool joinSelectedClips(ProjectSession& session) {
    if (diagnoseJoinSelectedClips(session)) return false;
    std::string trackID;
    const auto clips = selectedClipsInOrder(session, trackID);

    TimelineClip joined = *clips.front();
    std::vector<TimelineSourceRange> ranges;
    std::optional<std::vector<TimelineSourceRange>> origin;
    const bool anyOrigin = std::any_of(clips.begin(), clips.end(), [](const TimelineClip* c) {
        return c->originSourceRanges && !c->originSourceRanges->empty();
    });
    std::optional<std::vector<int>> segmentIDs;
    std::optional<std::vector<int>> wordIDs;
    std::set<int> seenSegments;
    std::set<int> seenWords;
    joined.reframeKeyframes.reset();
    joined.zoomRegions.reset();
    for (const TimelineClip* clip : clips) {
        if (isPacked(*clip)) {
            ranges.insert(ranges.end(), clip->assemblyRanges->begin(), clip->assemblyRanges->end());
        } else {
            ranges.push_back({clip->sourceIn, clip->sourceOut});
        }
        if (anyOrigin) {
            if (!origin) origin.emplace();
            const auto seen = clip->transcriptSourceRanges();
            origin->insert(origin->end(), seen.begin(), seen.end());
        }
        appendUnique(segmentIDs, clip->originSegmentIDs, seenSegments);
        appendUnique(wordIDs, clip->originWordIDs, seenWords);
        appendAll(joined.reframeKeyframes, clip->reframeKeyframes);
        appendAll(joined.zoomRegions, clip->zoomRegions);
    }
    joined.assemblyRanges = coalescedSourceRanges(ranges, touchingSeconds);
    if (origin) joined.originSourceRanges = coalescedSourceRanges(*origin, touchingSeconds);
    joined.originSegmentIDs = std::move(segmentIDs);
    joined.originWordIDs = std::move(wordIDs);
    joined.sourceIn = joined.assemblyRanges->front().sourceIn;
    joined.sourceOut = joined.assemblyRanges->front().sourceOut;
    for (const auto& range : *joined.assemblyRanges) {
        joined.sourceIn = std::min(joined.sourceIn, range.sourceIn);
        joined.sourceOut = std::max(joined.sourceOut, range.sourceOut);
    }

    // Clips hung on the joined pieces stay where they are, now on the one clip.
    std::set<std::string> absorbed;
    for (const TimelineClip* clip : clips)
        absorbed.insert(clip->id);
    for (auto& track : session.timeline->tracks) {
        if (isSequential(track)) continue;
        for (auto& connected : track.clips) {
            if (!connected.connectedToClipID || !absorbed.contains(*connected.connectedToClipID) ||
                !connected.connectedOffset)
                continue;
            connected.connectedOffset = connected.timelineStart.subtracting(joined.timelineStart);
            connected.connectedToClipID = joined.id;
        }
    }
    const std::string joinedID = joined.id;
    auto& trackClips = session.timeline->track(trackID)->clips;
    std::erase_if(trackClips,
                  [&](const TimelineClip& c) { return c.id != joinedID && absorbed.contains(c.id); });
    *std::find_if(trackClips.begin(), trackClips.end(),
                  [&](const TimelineClip& c) { return c.id == joinedID; }) = std::move(joined);
    session.selectedClipIDs = {joinedID};
    session.selectedClipID = joinedID;
    closeUp(session, trackID);
    return true;
}

}  // namespace TimelineEditor

}  // namespace morvane::app
