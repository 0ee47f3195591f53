#include "timeline/clip_edits.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::app::ClipEdits {

namespace ClipSpeed = engine::ClipSpeed;
using engine::ClipTimeMap;
using Ranges = std::vector<TimelineSourceRange>;

namespace {

// Lengths a hair under the shortest clip still count: they come from seconds rounded to ticks.
constexpr double kLengthTolerance = 1e-6;
// How close to a range boundary a cut in a packed clip falls on the boundary.
constexpr double kCutNudgeSeconds = 0.0001;

bool atLeastShortest(RationalTime length) {
    return length.seconds() + kLengthTolerance >= TimelineEditor::minimumClipSeconds;
}

RationalTime programOf(const TimelineClip& clip, RationalTime source) {
    return ClipSpeed::programDuration(source, clip.playbackRate);
}

RationalTime sourceOf(const TimelineClip& clip, RationalTime program) {
    return ClipSpeed::sourceDuration(program, clip.playbackRate);
}

// The same cut carried onto origin ranges that line up one to one with the assembly ranges (the playback
// map reads them that way), at the same offset into the divided range.
AssemblyCut alignedCut(const Ranges& assembly, const Ranges& origin, const AssemblyCut& cut) {
    AssemblyCut mapped = cut;
    if (cut.sourcePoint) {
        const auto& a = assembly[cut.index];
        const auto& o = origin[cut.index];
        mapped.sourcePoint =
            std::clamp(o.sourceIn.adding(cut.sourcePoint->subtracting(a.sourceIn)), o.sourceIn, o.sourceOut);
    }
    return mapped;
}

void keepLeftOf(Ranges& ranges, const AssemblyCut& cut) {
    if (cut.sourcePoint) {
        ranges.resize(cut.index + 1);
        ranges.back().sourceOut = *cut.sourcePoint;
    } else {
        ranges.resize(cut.index);
    }
}

void keepRightOf(Ranges& ranges, const AssemblyCut& cut) {
    ranges.erase(ranges.begin(), ranges.begin() + static_cast<std::ptrdiff_t>(cut.index));
    if (cut.sourcePoint) ranges.front().sourceIn = *cut.sourcePoint;
}

Ranges rightOf(const Ranges& ranges, const AssemblyCut& cut) {
    Ranges right(ranges.begin() + static_cast<std::ptrdiff_t>(cut.index), ranges.end());
    if (cut.sourcePoint) right.front().sourceIn = *cut.sourcePoint;
    return right;
}

// Origin ranges that don't line up with the assembly keep what lies within the clip's new bounds.
void clipToBounds(std::optional<Ranges>& ranges, RationalTime lower, RationalTime upper) {
    if (!ranges) return;
    std::erase_if(*ranges,
                  [&](const TimelineSourceRange& r) { return r.sourceOut <= lower || upper <= r.sourceIn; });
    for (auto& r : *ranges) {
        r.sourceIn = std::max(r.sourceIn, lower);
        r.sourceOut = std::min(r.sourceOut, upper);
    }
    if (ranges->empty()) ranges.reset();
}

void setBoundsFromRanges(TimelineClip& clip) {
    const Ranges& ranges = *clip.assemblyRanges;
    if (ranges.empty()) return;
    clip.sourceIn = ranges.front().sourceIn;
    clip.sourceOut = ranges.front().sourceOut;
    for (const auto& r : ranges) {
        clip.sourceIn = std::min(clip.sourceIn, r.sourceIn);
        clip.sourceOut = std::max(clip.sourceOut, r.sourceOut);
    }
}

bool originAligned(const TimelineClip& clip) {
    return clip.originSourceRanges && clip.originSourceRanges->size() == clip.assemblyRanges->size();
}

enum class Side { left, right };

// Cuts a packed clip's ranges in place, keeping one side; the origin ranges get the same side.
void keepSide(TimelineClip& clip, const AssemblyCut& cut, Side side) {
    Ranges& ranges = *clip.assemblyRanges;
    const bool keepsNothing =
        side == Side::left ? cut.index == 0 && !cut.sourcePoint : cut.index >= ranges.size();
    if (keepsNothing) return;
    const bool aligned = originAligned(clip);
    if (aligned) {
        const AssemblyCut originCut = alignedCut(ranges, *clip.originSourceRanges, cut);
        side == Side::left ? keepLeftOf(*clip.originSourceRanges, originCut)
                           : keepRightOf(*clip.originSourceRanges, originCut);
    }
    side == Side::left ? keepLeftOf(ranges, cut) : keepRightOf(ranges, cut);
    setBoundsFromRanges(clip);
    if (!aligned) clipToBounds(clip.originSourceRanges, clip.sourceIn, clip.sourceOut);
}

// Lengthens a packed clip's first or last range by `source`, not before the source's start.
void growOuterRange(TimelineClip& clip, TrimEdge edge, RationalTime source) {
    const bool aligned = originAligned(clip);
    const auto grow = [&](Ranges& ranges) {
        if (edge == TrimEdge::leading) {
            ranges.front().sourceIn =
                std::max(ranges.front().sourceIn.subtracting(source), RationalTime::zero);
        } else {
            ranges.back().sourceOut = ranges.back().sourceOut.adding(source);
        }
    };
    grow(*clip.assemblyRanges);
    if (aligned) grow(*clip.originSourceRanges);
    setBoundsFromRanges(clip);
}

void carryKeyframes(TimelineClip& clip, const ClipTimeMap& from) {
    const ClipTimeMap onto = clip.clipTimeMap();
    if (clip.reframeKeyframes && !clip.reframeKeyframes->empty())
        clip.reframeKeyframes = ClipTimeMap::remapKeyframes(*clip.reframeKeyframes, from, onto);
    if (clip.zoomRegions && !clip.zoomRegions->empty()) {
        auto regions = ClipTimeMap::remapZoomRegions(*clip.zoomRegions, from, onto);
        clip.zoomRegions = regions.empty() ? std::nullopt : std::optional(std::move(regions));
    }
}

}  // namespace

RationalTime secondsTime(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::secondsTimescale);
}

RationalTime programLength(const TimelineClip& clip) {
    return TimelinePlanBridge::programDuration(clip);
}

RationalTime programEnd(const TimelineClip& clip) {
    return clip.timelineStart.adding(programLength(clip));
}

bool isPacked(const TimelineClip& clip) noexcept {
    return clip.assemblyRanges && !clip.assemblyRanges->empty();
}

bool isSourceless(const TimelineClip& clip) noexcept {
    return clip.isTextLike() || clip.kind == TimelineClipKinds::image;
}

bool hasPictureKeyframes(const TimelineClip& clip) noexcept {
    return (clip.reframeKeyframes && !clip.reframeKeyframes->empty()) ||
           (clip.zoomRegions && !clip.zoomRegions->empty());
}

RationalTime EdgeBounds::clamped(RationalTime t) const noexcept {
    return std::clamp(t, lower, upper);
}

EdgeBounds edgeBounds(const TimelineClip& clip, TrimEdge edge, std::optional<RationalTime> maxSourceEnd) {
    const RationalTime start = clip.timelineStart;
    const RationalTime end = programEnd(clip);
    const RationalTime shortest = secondsTime(TimelineEditor::minimumClipSeconds);
    const bool packed = isPacked(clip);
    if (edge == TrimEdge::leading) {
        RationalTime lower = start;
        if (isSourceless(clip)) {
            if (maxSourceEnd)
                lower = std::min(start,
                                 end.subtracting(programOf(clip, maxSourceEnd->subtracting(clip.sourceIn))));
        } else {
            const RationalTime firstIn = packed ? clip.assemblyRanges->front().sourceIn : clip.sourceIn;
            if (firstIn > RationalTime::zero) lower = start.subtracting(programOf(clip, firstIn));
        }
        lower = std::min(std::max(lower, RationalTime::zero), start);
        return {lower, std::max(start, end.subtracting(shortest))};
    }
    RationalTime upper = end;
    if (isSourceless(clip)) {
        if (maxSourceEnd)
            upper = clip.timelineStart.adding(programOf(clip, maxSourceEnd->subtracting(clip.sourceIn)));
    } else if (maxSourceEnd) {
        const RationalTime lastOut = packed ? clip.assemblyRanges->back().sourceOut : clip.sourceOut;
        if (lastOut < *maxSourceEnd) upper = end.adding(programOf(clip, maxSourceEnd->subtracting(lastOut)));
    }
    return {std::min(start.adding(shortest), end), std::max(upper, end)};
}

void placeEdge(TimelineClip& clip, TrimEdge edge, RationalTime at) {
    const RationalTime start = clip.timelineStart;
    const RationalTime end = programEnd(clip);
    if (at.compare(edge == TrimEdge::leading ? start : end) == 0) return;
    const std::optional<ClipTimeMap> before =
        hasPictureKeyframes(clip) ? std::optional(clip.clipTimeMap()) : std::nullopt;

    if (edge == TrimEdge::leading) {
        if (isSourceless(clip)) {
            clip.sourceOut = clip.sourceIn.adding(sourceOf(clip, end.subtracting(at)));
        } else if (isPacked(clip) && start < at) {
            if (const auto cut = locateAssemblyCut(clip, at)) keepSide(clip, *cut, Side::right);
        } else if (isPacked(clip)) {
            growOuterRange(clip, edge, sourceOf(clip, start.subtracting(at)));
        } else {
            clip.sourceIn =
                std::max(clip.sourceIn.adding(sourceOf(clip, at.subtracting(start))), RationalTime::zero);
        }
        clip.timelineStart = at;
    } else if (isSourceless(clip) || !isPacked(clip)) {
        clip.sourceOut = clip.sourceIn.adding(sourceOf(clip, at.subtracting(start)));
    } else if (at < end) {
        if (const auto cut = locateAssemblyCut(clip, at)) keepSide(clip, *cut, Side::left);
    } else {
        growOuterRange(clip, edge, sourceOf(clip, at.subtracting(end)));
    }
    if (before) carryKeyframes(clip, *before);
}

std::optional<AssemblyCut> locateAssemblyCut(const TimelineClip& clip, RationalTime at) {
    if (!isPacked(clip)) return std::nullopt;
    const Ranges& ranges = *clip.assemblyRanges;
    const double t = at.seconds();
    RationalTime cursor = clip.timelineStart;
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        const TimelineSourceRange& range = ranges[i];
        const RationalTime length = programOf(clip, range.sourceOut.subtracting(range.sourceIn));
        const RationalTime next = cursor.adding(length);
        const double from = cursor.seconds();
        if (std::abs(t - from) <= kCutNudgeSeconds)
            return AssemblyCut{i, std::nullopt, cursor.subtracting(clip.timelineStart)};
        if (t > from && t < next.seconds() - kCutNudgeSeconds) {
            const RationalTime offset = at.subtracting(cursor);
            const RationalTime point = range.sourceIn.adding(sourceOf(clip, offset));
            // A range too short for the rounding to land inside it is cut at its edge.
            if (point <= range.sourceIn)
                return AssemblyCut{i, std::nullopt, cursor.subtracting(clip.timelineStart)};
            if (point >= range.sourceOut)
                return AssemblyCut{i + 1, std::nullopt, next.subtracting(clip.timelineStart)};
            return AssemblyCut{i, point, at.subtracting(clip.timelineStart)};
        }
        cursor = next;
    }
    if (std::abs(t - cursor.seconds()) <= kCutNudgeSeconds)
        return AssemblyCut{ranges.size(), std::nullopt, cursor.subtracting(clip.timelineStart)};
    return std::nullopt;
}

std::optional<TimelineClip> splitOff(TimelineClip& clip, RationalTime at) {
    const RationalTime length = programLength(clip);
    std::optional<AssemblyCut> cut;
    RationalTime leftLength = at.subtracting(clip.timelineStart);
    if (isPacked(clip)) {
        cut = locateAssemblyCut(clip, at);
        if (!cut) return std::nullopt;
        leftLength = cut->leftLength;
    }
    if (!atLeastShortest(leftLength) || !atLeastShortest(length.subtracting(leftLength))) return std::nullopt;

    const std::optional<ClipTimeMap> before =
        hasPictureKeyframes(clip) ? std::optional(clip.clipTimeMap()) : std::nullopt;
    TimelineClip right;
    if (cut) {
        // Take the range lists out so copying the clip's other fields doesn't copy them; the right half
        // then copies only its own ranges.
        Ranges assembly = std::exchange(*clip.assemblyRanges, {});
        std::optional<Ranges> origin = std::exchange(clip.originSourceRanges, std::nullopt);
        const bool aligned = origin && origin->size() == assembly.size();
        const std::optional<AssemblyCut> originCut =
            aligned ? std::optional(alignedCut(assembly, *origin, *cut)) : std::nullopt;
        right = clip;
        right.assemblyRanges = rightOf(assembly, *cut);
        keepLeftOf(assembly, *cut);
        if (originCut) {
            right.originSourceRanges = rightOf(*origin, *originCut);
            keepLeftOf(*origin, *originCut);
        } else {
            right.originSourceRanges = origin;
        }
        clip.assemblyRanges = std::move(assembly);
        clip.originSourceRanges = std::move(origin);
        setBoundsFromRanges(clip);
        setBoundsFromRanges(right);
        if (!aligned) {
            clipToBounds(clip.originSourceRanges, clip.sourceIn, clip.sourceOut);
            clipToBounds(right.originSourceRanges, right.sourceIn, right.sourceOut);
        }
    } else {
        const RationalTime point = clip.sourceIn.adding(sourceOf(clip, leftLength));
        right = clip;
        right.sourceIn = point;
        clip.sourceOut = point;
    }
    right.id = makeUUID();
    right.timelineStart = at;
    if (before) {
        carryKeyframes(clip, *before);
        carryKeyframes(right, *before);
    }
    return right;
}

void setRate(TimelineClip& clip, std::optional<double> rate) {
    const std::optional<ClipTimeMap> before =
        hasPictureKeyframes(clip) ? std::optional(clip.clipTimeMap()) : std::nullopt;
    clip.playbackRate = rate;
    if (before) carryKeyframes(clip, *before);
}

Ranges coalescedSourceRanges(const Ranges& ranges, double epsilonSeconds) {
    Ranges out;
    for (const auto& range : ranges) {
        if (!out.empty() &&
            std::abs(range.sourceIn.seconds() - out.back().sourceOut.seconds()) <= epsilonSeconds + 1e-9) {
            out.back().sourceOut = range.sourceOut;
        } else {
            out.push_back(range);
        }
    }
    return out;
}

void compactProgramAxis(std::vector<TimelineClip>& clips) {
    RationalTime cursor = RationalTime::zero;
    for (auto& clip : clips) {
        clip.moveTo(cursor);
        cursor = cursor.adding(programLength(clip));
    }
}

}  // namespace morvane::app::ClipEdits
