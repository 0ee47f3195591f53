#pragma once

/// An edit plan resolved: its times parsed, its clips grouped by track and laid out, its transitions
/// looked up by program time.
///
///     auto clips = EditPlanResolver::programClips(plan);
///     //  keep src1 5–8 s, keep src1 0–2 s, no positions given      ->   primary: [0–2 s at 0][5–8 s at 2 s]
///     for (const auto& clip : clips) clip.duration();   // program length, speed applied
///     auto table = EditPlanResolver::transitions(plan);
///     table.find(RationalTime{1, 2});                   // only the key as the file wrote it: not
///     30000/60000
///
/// Every function throws `EngineError::invalidRationalTime` on the first time string it reads that does
/// not parse, and returns nothing partial: one bad time makes the plan unusable.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// A "keep" operation with its times parsed.
struct KeepSpan {
    std::string sourceID;
    RationalTime start;
    RationalTime end;
    std::optional<std::string> reason;

    friend bool operator==(const KeepSpan&, const KeepSpan&) = default;
};

/// A "keep", "clip" or "text" operation resolved: times parsed, track named, program position laid out.
struct ProgramClip {
    std::string type;
    std::string sourceID;
    std::string trackID;         ///< the operation's, or "primary"
    RationalTime start;          ///< source start
    RationalTime end;            ///< source end
    RationalTime timelineStart;  ///< program position
    std::optional<std::string> label;
    std::optional<std::vector<std::int64_t>> originSegmentIDs;
    std::optional<double> audioGain;
    double playbackRate =
        1.0;  ///< the operation's when finite and above zero, else 1.0; never rounded to 1.0
    std::optional<EditPlanTextPayload> text;
    std::optional<EditPlanTransform> transform;
    std::optional<std::string> slotID;
    std::optional<std::vector<ReframeKeyframe>> reframeKeyframes;
    std::optional<ClipMatte> matte;
    std::optional<EditPlanTransition> transition;
    std::optional<ClipPresentationStyle> presentationStyle;
    std::optional<CursorStyle> cursorStyle;
    std::optional<std::string> cursorTrackID;
    std::optional<std::vector<ClipZoomRegion>> zoomRegions;

    /// end − start, on timescale 60000.
    [[nodiscard]] RationalTime sourceDuration() const noexcept { return end.subtracting(start); }

    /// The program length: `sourceDuration` at `playbackRate` (`ClipSpeed::programDuration`), so a rate
    /// within 0.0001 of 1.0 changes nothing and any other is rounded to timescale 60000.
    [[nodiscard]] RationalTime duration() const;

    /// The crop animation in force: the zoom regions as keyframes when there are any (a user's zoom
    /// replaces an automatic reframe), otherwise `reframeKeyframes`.
    [[nodiscard]] std::optional<std::vector<ReframeKeyframe>> resolvedReframeKeyframes() const;

    friend bool operator==(const ProgramClip&, const ProgramClip&) = default;
};

/// Orders times by their value across timescales and then by timescale, so that two keys are the same key
/// exactly when they are equal field for field: 1/2 and 30000/60000 are two keys.
struct FieldwiseTimeOrder {
    [[nodiscard]] bool operator()(RationalTime a, RationalTime b) const noexcept {
        if (const int c = a.compare(b); c != 0) return c < 0;
        if (a.timescale != b.timescale) return a.timescale < b.timescale;
        return a.value < b.value;
    }
};

/// Transitions by the program time the plan wrote for them, in time order.
using EditPlanTransitionTable = std::map<RationalTime, EditPlanTransition, FieldwiseTimeOrder>;

/// From a plan's flat operation list to what composition and export consume.
namespace EditPlanResolver {

/// A plan's time string as a time. Throws `EngineError::invalidRationalTime` quoting `text` for what
/// `RationalTime::parse` refuses, and also for a timescale beyond 2147483647: a file may hold one, and
/// reading a file must never stop the process.
[[nodiscard]] RationalTime parseTime(std::string_view text);

/// The "keep" operations, with empty and reversed spans dropped, sorted stably by source id, then start,
/// then end.
[[nodiscard]] std::vector<KeepSpan> keepSpans(const EditPlan& plan);

/// The "keep", "clip" and "text" operations as clips, tracks in ascending name order. On a track named
/// "primary" or "program" where no clip gives a `timeline_start`, the clips are sorted by source start and
/// laid end to end from zero, so gaps in the source close up. Every other track, and a primary track where
/// even one clip is placed, is sorted by position and left where it stands (unplaced clips at zero).
/// Empty and reversed spans are dropped silently.
[[nodiscard]] std::vector<ProgramClip> programClips(const EditPlan& plan);

/// The "transition" operations that carry a transition, by `timeline_start` (or `start` when absent) as
/// written; a later operation at an equal key replaces an earlier one.
[[nodiscard]] EditPlanTransitionTable transitions(const EditPlan& plan);

/// Parses every time string that a consumer of `plan` reads: the times of "keep", "clip", "text",
/// "transition" and "layout" operations as the resolvers read them, transition durations, caption word
/// times, and the timeline's and sources' frame durations when set. Throws `JsonDecodeError` naming
/// `document` and the JSON path of the first that does not parse, with the reason "Invalid rational time: "
/// and the text. When it passes, none of the resolvers throws.
void checkTimes(const EditPlan& plan, std::string_view document = {});

}  // namespace EditPlanResolver

}  // namespace morvane::engine
