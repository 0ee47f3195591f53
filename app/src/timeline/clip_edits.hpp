#pragma once

// The clip-level pieces the timeline editor is built from: a clip's extent on the program axis, where one
// of its edges may go, moving an edge, and cutting a packed clip (one with assembly ranges). They work on
// one clip at a time and never look at the session, so every editor operation can plan on them first and
// change the document only once the whole edit is known to be valid.
//
// A packed clip may hold hundreds of ranges: trimming one cuts its range list in place, and splitting one
// copies each range once, into the half that doesn't stay where it was.

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"

namespace morvane::app::ClipEdits {

/// A time at timescale 600: how the editor turns the seconds of a gesture into stored time.
[[nodiscard]] RationalTime secondsTime(double seconds);

[[nodiscard]] RationalTime programLength(const TimelineClip& clip);
[[nodiscard]] RationalTime programEnd(const TimelineClip& clip);
[[nodiscard]] bool isPacked(const TimelineClip& clip) noexcept;
/// Text and image clips: any stretch of their "source" looks the same, so only their length counts.
[[nodiscard]] bool isSourceless(const TimelineClip& clip) noexcept;
/// Whether the clip carries crop keyframes or zoom regions, which live in program time.
[[nodiscard]] bool hasPictureKeyframes(const TimelineClip& clip) noexcept;

/// Where one edge of a clip may go on the program axis: the clip stays at least the shortest length and
/// inside its source (`maxSourceEnd`, none: the trailing edge can't grow), and doesn't start before zero.
struct EdgeBounds {
    RationalTime lower;
    RationalTime upper;
    [[nodiscard]] RationalTime clamped(RationalTime t) const noexcept;
};
[[nodiscard]] EdgeBounds edgeBounds(const TimelineClip& clip, TrimEdge edge,
                                    std::optional<RationalTime> maxSourceEnd);

/// Moves one edge to program time `at`, which must lie within `edgeBounds`; the other edge keeps its
/// source time. A packed clip that shrinks is cut inside its ranges; one that grows lengthens its outer
/// range. Crop keyframes and zoom regions follow the material they were on.
void placeEdge(TimelineClip& clip, TrimEdge edge, RationalTime at);

/// Where program time `at` falls in a packed clip's ranges.
struct AssemblyCut {
    std::size_t index = 0;                    ///< the first range on the right side
    std::optional<RationalTime> sourcePoint;  ///< set when range `index` is divided here
    RationalTime leftLength;                  ///< program length on the left of the cut
};
/// Nothing when `at` is outside the clip. Within 0.0001 s of a range boundary the cut falls on it.
[[nodiscard]] std::optional<AssemblyCut> locateAssemblyCut(const TimelineClip& clip, RationalTime at);

/// Splits `clip` at program time `at`: `clip` becomes the left half and the right half, with a new id, is
/// returned. Nothing, and `clip` untouched, when either half would be under the shortest length.
[[nodiscard]] std::optional<TimelineClip> splitOff(TimelineClip& clip, RationalTime at);

/// Plays the clip at `rate` (none: 1.0); crops and zoom regions follow the material they were on.
void setRate(TimelineClip& clip, std::optional<double> rate);

/// Ranges whose start lies within `epsilonSeconds` of the previous range's end extend it.
[[nodiscard]] std::vector<TimelineSourceRange> coalescedSourceRanges(
    const std::vector<TimelineSourceRange>& ranges, double epsilonSeconds);

/// Lays the clips end to end from zero in list order; crops move with their clips.
void compactProgramAxis(std::vector<TimelineClip>& clips);

}  // namespace morvane::app::ClipEdits
