#pragma once

/// Which source time plays at a program time in one clip, and back; and how a clip's crop keyframes
/// follow an edit of its ranges.
///
///     //  program  10 s ──── 12 s ── 13 s
///     //  source   [0 s ── 2 s][5 s ─ 6 s]        two ranges played back to back at 1x
///     ClipTimeMap map(RationalTime{10, 1}, {{RationalTime{0, 1}, RationalTime{2, 1}},
///                                           {RationalTime{5, 1}, RationalTime{6, 1}}}, 1.0);
///     map.sourceTime(RationalTime{25, 2});       // 5.5 s (as 330000/60000)
///     map.programTime(RationalTime{3, 1});       // nothing: 3 s was cut
///     map.programIntervals(1.0, 5.5);            // {11, 12}, {12, 12.5}
///
/// The mappings work in double-precision seconds and round back once: results are on a 1/600 s grid,
/// expressed on timescale 60000. Span edges are matched with a tolerance of 0.0008 s, and no division by
/// the rate uses less than 0.0001.

#include <optional>
#include <vector>

#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/presentation/clip_zoom_region.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// One clip's source ranges laid end to end from a program time, at one speed.
class ClipTimeMap {
  public:
    /// A source range, `sourceIn` to `sourceOut`.
    struct Span {
        RationalTime sourceIn;
        RationalTime sourceOut;

        /// sourceOut − sourceIn in seconds, 0.0 when reversed.
        [[nodiscard]] double durationSeconds() const noexcept;

        friend bool operator==(const Span&, const Span&) = default;
    };

    /// A stretch of program time in seconds.
    struct Interval {
        double start = 0.0;
        double end = 0.0;
        friend bool operator==(const Interval&, const Interval&) = default;
    };

    /// Keeps the spans whose `sourceIn` is before `sourceOut`, in the given order; the rate is resolved as
    /// `ClipSpeed::resolved` does (absent, zero, negative or non-finite plays at 1.0).
    ClipTimeMap(RationalTime timelineStart, std::vector<Span> ranges, std::optional<double> rate);

    [[nodiscard]] RationalTime timelineStart() const noexcept { return timelineStart_; }
    [[nodiscard]] const std::vector<Span>& ranges() const noexcept { return ranges_; }
    [[nodiscard]] double rate() const noexcept { return rate_; }

    /// The clip's program length in seconds.
    [[nodiscard]] double programDurationSeconds() const noexcept;

    /// The source time that plays at `program`. Nothing before the clip or more than 0.0008 s after its end;
    /// a time just after the end gives the last source time.
    [[nodiscard]] std::optional<RationalTime> sourceTime(RationalTime program) const;

    /// The program time at which `source` plays: the first span that holds it (0.0008 s tolerance at both
    /// edges), so a source moment that plays twice gives its first showing. Nothing for a source time that
    /// was cut.
    [[nodiscard]] std::optional<RationalTime> programTime(RationalTime source) const;

    /// The program intervals, in span order, at which the source range `sourceStart`–`sourceEnd` (seconds)
    /// plays: one for each span it crosses by more than 0.001 s.
    [[nodiscard]] std::vector<Interval> programIntervals(double sourceStart, double sourceEnd) const;

    /// How many seconds of `sourceStart`–`sourceEnd` the `ranges` hold, summed over the ranges.
    [[nodiscard]] static double overlapSeconds(double sourceStart, double sourceEnd,
                                               const std::vector<Span>& ranges) noexcept;

    /// Carries keyframes, kept in program time, from the clip as it was (`from`) to the clip as it is
    /// (`onto`): each keyframe goes back to its source range, and comes out once for each stretch of that
    /// range that still plays, with the same crop. When none survives, one keyframe covers the whole new
    /// clip with the crop of the old keyframe that overlaps the new source most. Sorted by program start.
    [[nodiscard]] static std::vector<ReframeKeyframe> remapKeyframes(
        const std::vector<ReframeKeyframe>& keyframes, const ClipTimeMap& from, const ClipTimeMap& onto);

    /// The same for zoom regions, except that regions cut away entirely are gone: no region is invented.
    [[nodiscard]] static std::vector<ClipZoomRegion> remapZoomRegions(
        const std::vector<ClipZoomRegion>& regions, const ClipTimeMap& from, const ClipTimeMap& onto);

    friend bool operator==(const ClipTimeMap&, const ClipTimeMap&) = default;

  private:
    RationalTime timelineStart_;
    std::vector<Span> ranges_;
    double rate_ = 1.0;
};

}  // namespace morvane::engine
