#include "morvane/engine/plan/edit_plan_resolver.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::engine {
namespace {

bool isClipType(const EditPlanOperation& op) {
    const auto type = op.knownType();
    return type == EditPlanOperationType::keep || type == EditPlanOperationType::clip ||
           type == EditPlanOperationType::text;
}

bool isPrimaryTrack(std::string_view trackID) {
    return kPrimaryTrackNames.parse(trackID).has_value();
}

struct PlacedClip {
    ProgramClip clip;
    bool hasExplicitProgramStart = false;
};

// Lays a primary track end to end from zero in source order, unless any clip was placed by hand; every
// other track keeps its positions, in position order.
void layOut(std::vector<PlacedClip>& track, std::string_view trackID) {
    const bool anyPlaced =
        std::any_of(track.begin(), track.end(), [](const auto& c) { return c.hasExplicitProgramStart; });
    if (isPrimaryTrack(trackID) && !anyPlaced) {
        std::stable_sort(track.begin(), track.end(),
                         [](const auto& a, const auto& b) { return a.clip.start < b.clip.start; });
        RationalTime cursor = RationalTime::zero;
        for (auto& placed : track) {
            placed.clip.timelineStart = cursor;
            cursor = cursor.adding(placed.clip.duration());
        }
        return;
    }
    std::stable_sort(track.begin(), track.end(), [](const auto& a, const auto& b) {
        return a.clip.timelineStart < b.clip.timelineStart;
    });
}

// Parses `text` at `path` for `checkTimes`, reporting where it failed.
void checkTime(std::string_view text, const std::string& path, std::string_view document) {
    try {
        (void)RationalTime::parse(text);
    } catch (const EngineError& e) {
        throw JsonDecodeError(std::string(document), path, e.what());
    }
}

}  // namespace

RationalTime ProgramClip::duration() const {
    return ClipSpeed::programDuration(sourceDuration(), playbackRate);
}

std::optional<std::vector<ReframeKeyframe>> ProgramClip::resolvedReframeKeyframes() const {
    if (zoomRegions && !zoomRegions->empty()) {
        std::vector<ReframeKeyframe> keyframes;
        keyframes.reserve(zoomRegions->size());
        for (const auto& region : *zoomRegions)
            keyframes.push_back(region.asKeyframe());
        return keyframes;
    }
    return reframeKeyframes;
}

std::vector<KeepSpan> EditPlanResolver::keepSpans(const EditPlan& plan) {
    std::vector<KeepSpan> spans;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::keep) continue;
        const auto start = RationalTime::parse(op.start);
        const auto end = RationalTime::parse(op.end);
        if (!(start < end)) continue;
        spans.push_back({op.sourceID, start, end, op.reason});
    }
    // Spans that start at the same instant on different timescales order by their end, so that the order
    // is a true ordering whatever the file's timescales.
    std::stable_sort(spans.begin(), spans.end(), [](const KeepSpan& a, const KeepSpan& b) {
        if (a.sourceID != b.sourceID) return a.sourceID < b.sourceID;
        if (const int c = a.start.compare(b.start); c != 0) return c < 0;
        return a.end < b.end;
    });
    return spans;
}

std::vector<ProgramClip> EditPlanResolver::programClips(const EditPlan& plan) {
    std::map<std::string, std::vector<PlacedClip>> tracks;
    for (const auto& op : plan.operations) {
        if (!isClipType(op)) continue;
        // Every time is parsed before the span is judged: a bad time fails the plan even on a dropped clip.
        const auto start = RationalTime::parse(op.start);
        const auto end = RationalTime::parse(op.end);
        const auto position =
            op.timelineStart ? std::optional(RationalTime::parse(*op.timelineStart)) : std::nullopt;
        if (!(start < end)) continue;
        const std::string trackID =
            op.trackID.value_or(std::string(kPrimaryTrackNames.text(PrimaryTrackName::primary)));
        ProgramClip clip{
            .type = op.type,
            .sourceID = op.sourceID,
            .trackID = trackID,
            .start = start,
            .end = end,
            .timelineStart = position.value_or(RationalTime::zero),
            .label = op.label,
            .originSegmentIDs = op.origin ? op.origin->segmentIDs : std::nullopt,
            .audioGain = op.audioGain,
            .playbackRate = ClipSpeed::resolved(op.playbackRate),
            .text = op.text,
            .transform = op.transform,
            .slotID = op.slotID,
            .reframeKeyframes = op.reframeKeyframes,
            .matte = op.matte,
            .transition = op.transition,
            .presentationStyle = op.presentationStyle,
            .cursorStyle = op.cursorStyle,
            .cursorTrackID = op.cursorTrackID,
            .zoomRegions = op.zoomRegions,
        };
        tracks[trackID].push_back({std::move(clip), position.has_value()});
    }

    std::vector<ProgramClip> clips;
    for (auto& [trackID, track] : tracks) {
        layOut(track, trackID);
        for (auto& placed : track)
            clips.push_back(std::move(placed.clip));
    }
    return clips;
}

EditPlanTransitionTable EditPlanResolver::transitions(const EditPlan& plan) {
    EditPlanTransitionTable table;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::transition || !op.transition) continue;
        const auto key = RationalTime::parse(op.timelineStart.value_or(op.start));
        table.insert_or_assign(key, *op.transition);
    }
    return table;
}

void EditPlanResolver::checkTimes(const EditPlan& plan, std::string_view document) {
    if (!plan.timeline.frameDuration.empty())
        checkTime(plan.timeline.frameDuration, "/timeline/frame_duration", document);
    for (std::size_t i = 0; i < plan.sources.size(); ++i) {
        const auto& frameDuration = plan.sources[i].frameDuration;
        if (!frameDuration.empty())
            checkTime(frameDuration, fmt::format("/sources/{}/frame_duration", i), document);
    }
    for (std::size_t i = 0; i < plan.operations.size(); ++i) {
        const auto& op = plan.operations[i];
        const auto path = [&](std::string_view key) { return fmt::format("/operations/{}/{}", i, key); };
        const auto type = op.knownType();
        if (!type) continue;
        switch (*type) {
            case EditPlanOperationType::keep:
            case EditPlanOperationType::clip:
            case EditPlanOperationType::text:
                checkTime(op.start, path("start"), document);
                checkTime(op.end, path("end"), document);
                if (op.timelineStart) checkTime(*op.timelineStart, path("timeline_start"), document);
                if (op.text && op.text->captionWords) {
                    const auto& words = *op.text->captionWords;
                    for (std::size_t w = 0; w < words.size(); ++w) {
                        checkTime(words[w].start, path(fmt::format("text/caption_words/{}/start", w)),
                                  document);
                        checkTime(words[w].end, path(fmt::format("text/caption_words/{}/end", w)), document);
                    }
                }
                break;
            case EditPlanOperationType::transition:
                if (!op.transition) break;
                if (op.timelineStart) {
                    checkTime(*op.timelineStart, path("timeline_start"), document);
                } else {
                    checkTime(op.start, path("start"), document);
                }
                checkTime(op.transition->duration, path("transition/duration"), document);
                break;
            case EditPlanOperationType::layout:
                if (op.timelineStart) {
                    checkTime(*op.timelineStart, path("timeline_start"), document);
                } else {
                    checkTime(op.start, path("start"), document);
                }
                checkTime(op.end, path("end"), document);
                break;
        }
    }
}

}  // namespace morvane::engine
