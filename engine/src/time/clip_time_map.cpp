#include "morvane/engine/time/clip_time_map.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::engine {
namespace {

constexpr double kEdgeTolerance = 0.0008;  // seconds, at span edges
constexpr double kRateFloor = 0.0001;      // under every division by the rate
constexpr double kShortest = 0.001;        // seconds; shorter stretches are no stretch at all

// A mapped time in seconds back to an exact time: on a 1/600 s grid, expressed on timescale 60000.
// Nothing for values no time can hold (beyond about 475,000 years).
std::optional<RationalTime> secondsToTime(double seconds) {
    if (!(std::abs(seconds) < 1.0e13)) return std::nullopt;
    return RationalTime::fromSeconds(seconds, RationalTime::secondsTimescale)
        .convertedTo(RationalTime::workingTimescale, TimeRounding::halfAwayFromZero);
}

std::optional<double> roundedSeconds(std::optional<double> seconds) {
    if (!seconds) return std::nullopt;
    const auto time = secondsToTime(*seconds);
    if (!time) return std::nullopt;
    return time->seconds();
}

}  // namespace

double ClipTimeMap::Span::durationSeconds() const noexcept {
    return std::max(sourceOut.seconds() - sourceIn.seconds(), 0.0);
}

ClipTimeMap::ClipTimeMap(RationalTime timelineStart, std::vector<Span> ranges, std::optional<double> rate)
    : timelineStart_(timelineStart), rate_(ClipSpeed::resolved(rate)) {
    ranges_.reserve(ranges.size());
    for (const auto& span : ranges) {
        if (span.sourceIn < span.sourceOut) ranges_.push_back(span);
    }
}

double ClipTimeMap::programDurationSeconds() const noexcept {
    double total = 0.0;
    for (const auto& span : ranges_)
        total += span.durationSeconds();
    return total / std::max(rate_, kRateFloor);
}

// The two mappings on seconds, unrounded; the public forms round their result once.
namespace {

std::optional<double> sourceSecondsAt(const ClipTimeMap& map, double t) {
    const auto& ranges = map.ranges();
    const double divisor = std::max(map.rate(), kRateFloor);
    double cursor = map.timelineStart().seconds();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        const double length = ranges[i].durationSeconds() / divisor;
        const double end = cursor + length;
        const bool isLast = i + 1 == ranges.size();
        // The last span also answers for a time a hair past the clip's end: the last frame.
        if (cursor - t <= kEdgeTolerance && (t < end || (isLast && t - end <= kEdgeTolerance))) {
            const double offset = std::clamp(t - cursor, 0.0, length);
            return ranges[i].sourceIn.seconds() + map.rate() * offset;
        }
        cursor = end;
    }
    return std::nullopt;
}

std::optional<double> programSecondsAt(const ClipTimeMap& map, double s) {
    const double divisor = std::max(map.rate(), kRateFloor);
    double cursor = map.timelineStart().seconds();
    for (const auto& span : map.ranges()) {
        const double length = span.durationSeconds();
        if (s >= span.sourceIn.seconds() - kEdgeTolerance && s <= span.sourceOut.seconds() + kEdgeTolerance) {
            return cursor + std::clamp(s - span.sourceIn.seconds(), 0.0, length) / divisor;
        }
        cursor += length / divisor;
    }
    return std::nullopt;
}

std::vector<ReframeKeyframe> remap(const std::vector<ReframeKeyframe>& keyframes, const ClipTimeMap& from,
                                   const ClipTimeMap& onto, bool inventFallback) {
    if (keyframes.empty() || from.ranges().empty() || onto.ranges().empty()) return {};

    struct Measured {
        double sourceStart;
        double sourceEnd;
        const ReframeKeyframe* keyframe;
    };
    std::vector<Measured> measured;
    std::vector<ReframeKeyframe> out;
    for (const auto& keyframe : keyframes) {
        const auto start = roundedSeconds(sourceSecondsAt(from, keyframe.programStart.seconds()));
        const auto end = roundedSeconds(sourceSecondsAt(from, keyframe.programEnd.seconds()));
        if (!start || !end) continue;
        measured.push_back({*start, *end, &keyframe});
        for (const auto& interval : onto.programIntervals(*start, *end)) {
            if (interval.end - interval.start <= kShortest) continue;
            const auto programStart = secondsToTime(interval.start);
            const auto programEnd = secondsToTime(interval.end);
            if (programStart && programEnd) out.push_back({*programStart, *programEnd, keyframe.sourceRect});
        }
    }

    if (out.empty() && inventFallback) {
        // The cut went through every keyframe: keep the look of the one that matters most to what remains,
        // the one overlapping the new source most; on a tie, the one nearest the middle of the new source.
        const auto middle =
            sourceSecondsAt(onto, onto.timelineStart().seconds() + 0.5 * onto.programDurationSeconds());
        const ReframeKeyframe* best = &keyframes.front();
        double bestOverlap = -1.0;
        double bestDistance = std::numeric_limits<double>::infinity();
        for (const auto& m : measured) {
            const double overlap = ClipTimeMap::overlapSeconds(
                std::min(m.sourceStart, m.sourceEnd), std::max(m.sourceStart, m.sourceEnd), onto.ranges());
            const double distance = middle ? std::abs(0.5 * (m.sourceStart + m.sourceEnd) - *middle)
                                           : std::numeric_limits<double>::infinity();
            if (overlap > bestOverlap || (overlap == bestOverlap && distance < bestDistance)) {
                best = m.keyframe;
                bestOverlap = overlap;
                bestDistance = distance;
            }
        }
        const auto end = secondsToTime(onto.timelineStart().seconds() + onto.programDurationSeconds());
        out.push_back({onto.timelineStart(), end.value_or(onto.timelineStart()), best->sourceRect});
    }

    std::stable_sort(out.begin(), out.end(), [](const ReframeKeyframe& a, const ReframeKeyframe& b) {
        return a.programStart < b.programStart;
    });
    return out;
}

}  // namespace

std::optional<RationalTime> ClipTimeMap::sourceTime(RationalTime program) const {
    const auto seconds = sourceSecondsAt(*this, program.seconds());
    return seconds ? secondsToTime(*seconds) : std::nullopt;
}

std::optional<RationalTime> ClipTimeMap::programTime(RationalTime source) const {
    const auto seconds = programSecondsAt(*this, source.seconds());
    return seconds ? secondsToTime(*seconds) : std::nullopt;
}

std::vector<ClipTimeMap::Interval> ClipTimeMap::programIntervals(double sourceStart, double sourceEnd) const {
    std::vector<Interval> out;
    if (!(sourceStart < sourceEnd)) return out;
    for (const auto& span : ranges_) {
        const double lo = std::max(sourceStart, span.sourceIn.seconds());
        const double hi = std::min(sourceEnd, span.sourceOut.seconds());
        if (!(hi - lo > kShortest)) continue;
        const auto start = roundedSeconds(programSecondsAt(*this, lo));
        const auto end = roundedSeconds(programSecondsAt(*this, hi));
        if (!start || !end || !(*start < *end)) continue;
        out.push_back({*start, *end});
    }
    return out;
}

double ClipTimeMap::overlapSeconds(double sourceStart, double sourceEnd,
                                   const std::vector<Span>& ranges) noexcept {
    if (!(sourceStart < sourceEnd)) return 0.0;
    double total = 0.0;
    for (const auto& span : ranges) {
        const double length =
            std::min(sourceEnd, span.sourceOut.seconds()) - std::max(sourceStart, span.sourceIn.seconds());
        if (length > 0.0) total += length;
    }
    return total;
}

std::vector<ReframeKeyframe> ClipTimeMap::remapKeyframes(const std::vector<ReframeKeyframe>& keyframes,
                                                         const ClipTimeMap& from, const ClipTimeMap& onto) {
    return remap(keyframes, from, onto, true);
}

std::vector<ClipZoomRegion> ClipTimeMap::remapZoomRegions(const std::vector<ClipZoomRegion>& regions,
                                                          const ClipTimeMap& from, const ClipTimeMap& onto) {
    std::vector<ReframeKeyframe> keyframes;
    keyframes.reserve(regions.size());
    for (const auto& region : regions)
        keyframes.push_back(region.asKeyframe());
    std::vector<ClipZoomRegion> out;
    for (const auto& keyframe : remap(keyframes, from, onto, false))
        out.push_back(ClipZoomRegion::fromKeyframe(keyframe));
    return out;
}

}  // namespace morvane::engine
