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

// Orders one track's clips, given as indices into `clips`: a primary track where no clip was placed by hand
// (`placed`) is sorted by source start and laid end to end from zero; any other track is sorted by position
// and left where it stands.
void layOut(std::vector<ProgramClip>& clips, const std::vector<bool>& placed, std::vector<std::size_t>& track,
            std::string_view trackID) {
    const bool anyPlaced = std::any_of(track.begin(), track.end(), [&](std::size_t i) { return placed[i]; });
    const bool layEndToEnd = isPrimaryTrack(trackID) && !anyPlaced;
    std::stable_sort(track.begin(), track.end(), [&](std::size_t a, std::size_t b) {
        return layEndToEnd ? clips[a].start < clips[b].start
                           : clips[a].timelineStart < clips[b].timelineStart;
    });
    if (!layEndToEnd) return;
    RationalTime cursor = RationalTime::zero;
    for (const std::size_t i : track) {
        clips[i].timelineStart = cursor;
        cursor = cursor.adding(clips[i].duration());
    }
}

// Rearranges `items` so that position k holds what was at `order[k]`, following the permutation's cycles:
// clips are large, so they are moved once each rather than copied into a second list.
template <class T>
void permute(std::vector<T>& items, const std::vector<std::size_t>& order) {
    std::vector<bool> done(items.size(), false);
    for (std::size_t start = 0; start < items.size(); ++start) {
        if (done[start] || order[start] == start) continue;
        T held = std::move(items[start]);
        std::size_t k = start;
        while (true) {
            done[k] = true;
            const std::size_t from = order[k];
            if (from == start) {
                items[k] = std::move(held);
                break;
            }
            items[k] = std::move(items[from]);
            k = from;
        }
    }
}

// Parses `text` at `path` for `checkTimes`, reporting where it failed.
void checkTime(std::string_view text, const std::string& path, std::string_view document) {
    try {
        (void)EditPlanResolver::parseTime(text);
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

RationalTime EditPlanResolver::parseTime(std::string_view text) {
    if (const auto time = RationalTime::tryParse(text)) return *time;
    throw EngineError::invalidRationalTime(std::string(text));
}

std::vector<KeepSpan> EditPlanResolver::keepSpans(const EditPlan& plan) {
    std::vector<KeepSpan> spans;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::keep) continue;
        const auto start = parseTime(op.start);
        const auto end = parseTime(op.end);
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
    std::vector<ProgramClip> clips;
    std::vector<bool> placed;  // whether each clip's operation gave its program position
    clips.reserve(plan.operations.size());
    for (const auto& op : plan.operations) {
        if (!isClipType(op)) continue;
        // Every time is parsed before the span is judged: a bad time fails the plan even on a dropped clip.
        const auto start = parseTime(op.start);
        const auto end = parseTime(op.end);
        const auto position = op.timelineStart ? std::optional(parseTime(*op.timelineStart)) : std::nullopt;
        if (!(start < end)) continue;
        clips.push_back({
            .type = op.type,
            .sourceID = op.sourceID,
            .trackID = op.trackID.value_or(std::string(kPrimaryTrackNames.text(PrimaryTrackName::primary))),
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
        });
        placed.push_back(position.has_value());
    }

    // Tracks in ascending name order, each laid out, then concatenated.
    std::map<std::string, std::vector<std::size_t>> tracks;
    for (std::size_t i = 0; i < clips.size(); ++i)
        tracks[clips[i].trackID].push_back(i);
    std::vector<std::size_t> order;
    order.reserve(clips.size());
    for (auto& [trackID, track] : tracks) {
        layOut(clips, placed, track, trackID);
        order.insert(order.end(), track.begin(), track.end());
    }
    permute(clips, order);
    return clips;
}

EditPlanTransitionTable EditPlanResolver::transitions(const EditPlan& plan) {
    EditPlanTransitionTable table;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::transition || !op.transition) continue;
        const auto key = parseTime(op.timelineStart.value_or(op.start));
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
