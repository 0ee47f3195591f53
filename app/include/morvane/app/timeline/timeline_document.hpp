#pragma once

/// The editable form of a project's edit: five fixed tracks of clips, markers and layout regions. Where the
/// edit plan is a flat list for machines, this is what the timeline shows and what the timeline editor
/// changes. It is a plain value, held by the session and saved inside the project file.
///
///     TimelineDocument timeline = TimelineDocument::makeDefault("1001/30000");   // five empty tracks
///     TimelineTrack source = *timeline.track(TimelineTrackIDs::source);
///     source.clips.push_back(clip);
///     timeline.updateTrack(source);
///     Json json = timeline;                                                       // camel-case keys

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/export/caption_word_timing.hpp"
#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/presentation/clip_matte.hpp"
#include "morvane/engine/presentation/clip_presentation_style.hpp"
#include "morvane/engine/presentation/clip_zoom_region.hpp"
#include "morvane/engine/presentation/cursor_style.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/text/text_clip_style.hpp"
#include "morvane/engine/time/clip_time_map.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::app {

using engine::RationalTime;

/// The stable ids of the five tracks.
namespace TimelineTrackIDs {
inline constexpr std::string_view source = "source";    ///< the magnetic storyline
inline constexpr std::string_view program = "program";  ///< a rough cut under review
inline constexpr std::string_view overlay = "overlay";
inline constexpr std::string_view audio = "audio";
inline constexpr std::string_view text = "text";
}  // namespace TimelineTrackIDs

/// The clip kinds the system itself tests for; other kinds are carried.
namespace TimelineClipKinds {
inline constexpr std::string_view media = "media";
inline constexpr std::string_view text = "text";
inline constexpr std::string_view image = "image";
inline constexpr std::string_view caption = "caption";
}  // namespace TimelineClipKinds

enum class TimelineTrackKind { source, program, overlay, audio, text };
inline constexpr auto kTimelineTrackKindNames = makeEnumTable<TimelineTrackKind>({
    {TimelineTrackKind::source, "source"},
    {TimelineTrackKind::program, "program"},
    {TimelineTrackKind::overlay, "overlay"},
    {TimelineTrackKind::audio, "audio"},
    {TimelineTrackKind::text, "text"},
});

enum class TimelineTrackRole { storyline, dialogue, music, sfx, broll, titles, captions, layout };
inline constexpr auto kTimelineTrackRoleNames = makeEnumTable<TimelineTrackRole>({
    {TimelineTrackRole::storyline, "storyline"},
    {TimelineTrackRole::dialogue, "dialogue"},
    {TimelineTrackRole::music, "music"},
    {TimelineTrackRole::sfx, "sfx"},
    {TimelineTrackRole::broll, "broll"},
    {TimelineTrackRole::titles, "titles"},
    {TimelineTrackRole::captions, "captions"},
    {TimelineTrackRole::layout, "layout"},
});

/// A source range: `sourceIn` to `sourceOut` (exclusive).
struct TimelineSourceRange {
    RationalTime sourceIn;
    RationalTime sourceOut;
    friend bool operator==(const TimelineSourceRange&, const TimelineSourceRange&) = default;
};

struct TimelineClip {
    std::string id;        ///< UUID: identity for selection, connection and undo
    std::string sourceID;  ///< "src1" is the primary source
    std::string label;
    RationalTime sourceIn;
    RationalTime sourceOut;                            ///< exclusive
    RationalTime timelineStart;                        ///< position on the program axis
    std::optional<std::vector<int>> originSegmentIDs;  ///< transcript segments this clip plays
    std::optional<std::vector<int>> originWordIDs;     ///< transcript words this clip plays
    /// A packed cut: the ranges played in order; `sourceIn` and `sourceOut` are then only the outer bounds.
    std::optional<std::vector<TimelineSourceRange>> assemblyRanges;
    /// The ranges the transcript sees; they survive further trims of `assemblyRanges`.
    std::optional<std::vector<TimelineSourceRange>> originSourceRanges;
    std::optional<std::string> textContent;
    std::optional<engine::TextClipStyle> textStyle;
    std::optional<std::vector<engine::CaptionWordTiming>> captionWords;
    std::string kind{TimelineClipKinds::media};
    double audioGain = 1.0;                        ///< linear; 1.0 is unity
    std::optional<double> playbackRate;            ///< absent plays at 1.0
    std::optional<std::string> connectedToClipID;  ///< host clip on the primary storyline
    std::optional<RationalTime> connectedOffset;   ///< position relative to the host's start
    std::optional<std::string> slotID;
    std::optional<std::vector<engine::ReframeKeyframe>> reframeKeyframes;
    std::optional<engine::EditPlanTransform> transform;
    std::optional<engine::ClipMatte> matte;
    std::optional<std::string> cursorTrackID;
    std::optional<std::string> captureTakeID;  ///< groups the clips of one recording take
    std::optional<engine::ClipPresentationStyle> presentationStyle;
    std::optional<engine::CursorStyle> cursorStyle;
    std::optional<std::vector<engine::ClipZoomRegion>> zoomRegions;

    /// sourceOut − sourceIn.
    [[nodiscard]] RationalTime sourceDuration() const noexcept { return sourceOut.subtracting(sourceIn); }
    /// What the clip plays: the summed lengths of its assembly ranges, or sourceOut − sourceIn.
    [[nodiscard]] RationalTime sourceSpan() const noexcept;
    /// The ranges that line the clip up with the transcript: `originSourceRanges`, else `assemblyRanges`,
    /// else the clip's own range (an empty list counts as none).
    [[nodiscard]] std::vector<TimelineSourceRange> transcriptSourceRanges() const;
    /// The clip's program placement of `transcriptSourceRanges` at its speed.
    [[nodiscard]] engine::ClipTimeMap clipTimeMap() const;
    /// Zoom regions (as keyframes) when there are any, otherwise `reframeKeyframes`.
    [[nodiscard]] std::optional<std::vector<engine::ReframeKeyframe>> resolvedReframeKeyframes() const;
    /// The label, preceded by the speed ("2× Intro") for a media clip played faster or slower.
    [[nodiscard]] std::string timelineBadgeLabel() const;
    /// Whether the clip carries a picture treatment worth handing to a clip that replaces it: a transform,
    /// slot, reframe, matte, frame style, cursor or zoom.
    [[nodiscard]] bool preservesEditChrome() const noexcept;
    /// This clip with `donor`'s picture treatment; keyframes and zoom regions are carried across from the
    /// donor's time map onto this clip's.
    [[nodiscard]] TimelineClip inheritingPictureEffects(const TimelineClip& donor) const;
    /// Places the clip at program time `start`; its crop keyframes and zoom regions, which are held in
    /// program time, move with it.
    void moveTo(RationalTime start);
    [[nodiscard]] bool isTextLike() const noexcept {
        return kind == TimelineClipKinds::text || kind == TimelineClipKinds::caption;
    }

    friend bool operator==(const TimelineClip&, const TimelineClip&) = default;
};

struct TimelineTrack {
    std::string id;  ///< one of `TimelineTrackIDs`
    TimelineTrackKind kind = TimelineTrackKind::source;
    std::string name;
    std::optional<TimelineTrackRole> role;
    std::vector<TimelineClip> clips;

    /// The name the timeline shows: by kind for audio and program tracks, otherwise by role, else `name`.
    [[nodiscard]] std::string displayName() const;

    friend bool operator==(const TimelineTrack&, const TimelineTrack&) = default;
};

struct TimelineMarker {
    std::string id;  ///< UUID
    std::string name;
    RationalTime time;
    friend bool operator==(const TimelineMarker&, const TimelineMarker&) = default;
};

/// A stretch of program time shown in a layout preset.
struct TimelineLayoutRegion {
    std::string id;  ///< UUID
    std::string layoutID;
    RationalTime timelineStart;
    RationalTime timelineEnd;
    friend bool operator==(const TimelineLayoutRegion&, const TimelineLayoutRegion&) = default;
};

struct TimelineDocument {
    std::string frameDuration{"1001/30000"};  ///< rational text
    std::optional<engine::ProjectFormat> projectFormat;
    std::vector<TimelineLayoutRegion> layoutRegions;
    std::vector<TimelineMarker> markers;
    std::vector<TimelineTrack> tracks;

    /// The five default tracks ("source", "program", "overlay", "audio", "text") with no clips, and the
    /// first format preset at `frameDuration`.
    [[nodiscard]] static TimelineDocument makeDefault(std::string frameDuration);

    /// The first track with `id`.
    [[nodiscard]] const TimelineTrack* track(std::string_view id) const noexcept;
    [[nodiscard]] TimelineTrack* track(std::string_view id) noexcept;
    /// The clips of track `id`; empty for a missing track.
    [[nodiscard]] const std::vector<TimelineClip>& clips(std::string_view id) const noexcept;
    /// Replaces the first track with `track.id`, or appends it when there is none.
    void updateTrack(TimelineTrack track);
    /// The clip with `clipID` on any track, and the id of its track.
    [[nodiscard]] const TimelineClip* findClip(std::string_view clipID, std::string* trackID = nullptr) const;

    friend bool operator==(const TimelineDocument&, const TimelineDocument&) = default;
};

// JSON: camel-case keys, the field names; times as {"value","timescale"} records except `frameDuration`,
// which is rational text. Optional members are omitted when absent.
void to_json(Json& json, const TimelineSourceRange& range);
void fromJson(const JsonReader& reader, TimelineSourceRange& range);
void to_json(Json& json, const TimelineClip& clip);
void fromJson(const JsonReader& reader, TimelineClip& clip);
void to_json(Json& json, const TimelineTrack& track);
void fromJson(const JsonReader& reader, TimelineTrack& track);
void to_json(Json& json, const TimelineMarker& marker);
void fromJson(const JsonReader& reader, TimelineMarker& marker);
void to_json(Json& json, const TimelineLayoutRegion& region);
void fromJson(const JsonReader& reader, TimelineLayoutRegion& region);
void to_json(Json& json, const TimelineDocument& document);
void fromJson(const JsonReader& reader, TimelineDocument& document);

}  // namespace morvane::app
