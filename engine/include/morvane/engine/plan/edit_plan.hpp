#pragma once

/// The edit plan: the one declarative description of a finished edit. The assistant's proposal and the
/// timeline both reduce to it; composition, audio mix, export, interchange and the saved project read
/// nothing else. It is a flat list of operations over named sources under a small timeline header, and
/// every time in it is a rational time string ("1001/30000"), so the file is exact and readable by hand.
///
///     EditPlan plan;
///     plan.timeline.frameDuration = "1001/30000";
///     plan.sources.push_back({.id = "src1", .url = "media/talk.mov", .frameDuration = "1001/30000"});
///     plan.operations.push_back({.type = "keep", .sourceID = "src1", .start = "0/600", .end = "3000/600"});
///     std::string bytes = EditPlanCoding::encode(plan);          // edit_plan_coding.hpp
///     auto clips = EditPlanResolver::programClips(plan);          // edit_plan_resolver.hpp
///
/// Records keep times as the strings the file holds; `EditPlanResolver` parses and lays them out.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/plan/edit_plan_rect.hpp"
#include "morvane/engine/presentation/clip_matte.hpp"
#include "morvane/engine/presentation/clip_presentation_style.hpp"
#include "morvane/engine/presentation/clip_zoom_region.hpp"
#include "morvane/engine/presentation/cursor_style.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// The operation types a plan's consumers act on. An operation may carry any other text as its type; it is
/// kept and ignored.
enum class EditPlanOperationType { keep, clip, text, transition, layout };

/// The stored texts of `EditPlanOperationType`.
inline constexpr auto kEditPlanOperationTypeNames = makeEnumTable<EditPlanOperationType>({
    {EditPlanOperationType::keep, "keep"},
    {EditPlanOperationType::clip, "clip"},
    {EditPlanOperationType::text, "text"},
    {EditPlanOperationType::transition, "transition"},
    {EditPlanOperationType::layout, "layout"},
});

/// The tracks whose clips, when none is placed explicitly, are laid end to end as the program.
enum class PrimaryTrackName { primary, program };

/// The track names of `PrimaryTrackName`; "primary" is also the track of an operation that names none.
inline constexpr auto kPrimaryTrackNames = makeEnumTable<PrimaryTrackName>({
    {PrimaryTrackName::primary, "primary"},
    {PrimaryTrackName::program, "program"},
});

/// Why a span exists.
enum class EditPlanOriginKind {
    instruction,     ///< the assistant's instruction kept its transcript segment
    segment,         ///< a timeline clip that remembers the transcript segments it came from
    shortCandidate,  ///< the passage chosen as a short
};

/// The stored texts of `EditPlanOriginKind`. The origin's `kind` stays a string: other texts are carried.
inline constexpr auto kEditPlanOriginKindNames = makeEnumTable<EditPlanOriginKind>({
    {EditPlanOriginKind::instruction, "instruction"},
    {EditPlanOriginKind::segment, "segment"},
    {EditPlanOriginKind::shortCandidate, "short"},
});

/// Why a span exists, and which transcript segments it came from.
struct EditPlanOrigin {
    std::string kind;  ///< see `kEditPlanOriginKindNames`
    std::optional<std::vector<std::int64_t>> segmentIDs;

    friend bool operator==(const EditPlanOrigin&, const EditPlanOrigin&) = default;
};

/// A transition at a program time.
struct EditPlanTransition {
    std::string kind;      ///< what the transition looks like ("crossfade"...)
    std::string duration;  ///< rational time string

    friend bool operator==(const EditPlanTransition&, const EditPlanTransition&) = default;
};

/// Crop and placement of a clip's picture. This one record keeps camel-case JSON keys ("sourceRect",
/// "destinationRect") among the plan's snake case.
struct EditPlanTransform {
    std::optional<EditPlanRect> sourceRect;       ///< the part of the source shown, normalised to it
    std::optional<EditPlanRect> destinationRect;  ///< where it lands, normalised to the canvas

    friend bool operator==(const EditPlanTransform&, const EditPlanTransform&) = default;
};

/// One word of a caption, with times relative to its clip.
struct EditPlanCaptionWord {
    std::string text;
    std::string start;  ///< rational time string, from the clip's start
    std::string end;

    friend bool operator==(const EditPlanCaptionWord&, const EditPlanCaptionWord&) = default;
};

/// The words and look of a "text" operation. Every member but `content` has a default, and a missing key
/// reads as that default, so {"content":"Hi"} is a whole payload. Colours are 0.0–1.0 channels.
struct EditPlanTextPayload {
    std::string content;
    double fontSize = 48.0;
    std::string fontName = "Helvetica-Bold";
    double textRed = 1.0;
    double textGreen = 1.0;
    double textBlue = 1.0;
    double textAlpha = 1.0;
    std::optional<double> backgroundRed;
    std::optional<double> backgroundGreen;
    std::optional<double> backgroundBlue;
    std::optional<double> backgroundAlpha;
    std::string horizontalAlign = "center";
    std::string verticalPosition = "center";
    double margin = 24.0;
    std::string preset = "title";
    double strokeWidth = 0.0;
    double strokeRed = 0.0;
    double strokeGreen = 0.0;
    double strokeBlue = 0.0;
    double strokeAlpha = 1.0;
    double shadowOffsetX = 0.0;
    double shadowOffsetY = 0.0;
    double shadowBlur = 0.0;
    double shadowRed = 0.0;
    double shadowGreen = 0.0;
    double shadowBlue = 0.0;
    double shadowAlpha = 0.0;
    double highlightRed = 1.0;
    double highlightGreen = 0.85;
    double highlightBlue = 0.2;
    double highlightAlpha = 1.0;
    std::optional<std::vector<EditPlanCaptionWord>> captionWords;

    friend bool operator==(const EditPlanTextPayload&, const EditPlanTextPayload&) = default;
};

/// One step of the edit. `type`, `sourceID`, `start` and `end` are always there; the rest is set only where
/// it means something.
struct EditPlanOperation {
    std::string type;      ///< see `kEditPlanOperationTypeNames`; other texts are carried and ignored
    std::string sourceID;  ///< the source the span comes from
    std::string start;     ///< rational time string: source time, or program time for "text" and "layout"
    std::string end;
    std::optional<EditPlanOrigin> origin;
    std::optional<double> confidence;  ///< the model's confidence for a kept span
    std::optional<std::string> reason;
    std::optional<std::string> timelineStart;  ///< explicit program position, rational time string
    std::optional<std::string> trackID;        ///< absent means "primary"
    std::optional<std::string> label;          ///< display label; a "layout" operation's layout id
    std::optional<double> audioGain;           ///< linear
    std::optional<double> playbackRate;
    std::optional<EditPlanTextPayload> text;
    std::optional<EditPlanTransform> transform;
    std::optional<std::string> slotID;
    std::optional<std::vector<ReframeKeyframe>> reframeKeyframes;
    std::optional<ClipMatte> matte;
    std::optional<EditPlanTransition> transition;
    std::optional<ClipPresentationStyle> presentationStyle;
    std::optional<CursorStyle> cursorStyle;
    std::optional<std::string> cursorTrackID;  ///< the source whose pointer track draws over this clip
    std::optional<std::vector<ClipZoomRegion>> zoomRegions;

    /// The type as a known case, or nothing for a type the plan only carries.
    [[nodiscard]] std::optional<EditPlanOperationType> knownType() const noexcept {
        return kEditPlanOperationTypeNames.parse(type);
    }

    friend bool operator==(const EditPlanOperation&, const EditPlanOperation&) = default;
};

/// A medium that operations name by `id`.
struct EditPlanSource {
    std::string id;
    std::string url;            ///< absolute URL, or a path relative to the plan
    std::string frameDuration;  ///< the source's own frame duration, rational time string
    bool vfr = false;           ///< variable frame rate
    std::optional<CursorTrack> cursorTrack;

    friend bool operator==(const EditPlanSource&, const EditPlanSource&) = default;
};

/// The plan's header.
struct EditPlanTimeline {
    std::string frameDuration;              ///< one program frame, rational time string
    std::optional<std::string> renderSize;  ///< "WIDTHxHEIGHT"
    std::optional<std::string> colorSpace;  ///< "srgb", "display_p3" or "rec709"

    /// The format to render: at `frameDuration` (or `fallbackFrameDuration` when that is empty, or
    /// "1001/30000"). A render size that parses gives the custom preset at that size in `colorSpace`
    /// (absent or unknown texts read as rec709); otherwise the first preset, 1920 x 1080, rec709, whatever
    /// `colorSpace` says.
    [[nodiscard]] ProjectFormat resolvedFormat(std::optional<std::string> fallbackFrameDuration = {}) const;

    friend bool operator==(const EditPlanTimeline&, const EditPlanTimeline&) = default;
};

/// A whole edit.
struct EditPlan {
    /// The version this system writes. Other versions are read all the same.
    static constexpr std::string_view currentVersion = "0.3";

    std::string version{currentVersion};
    EditPlanTimeline timeline;
    std::vector<EditPlanSource> sources;
    std::vector<EditPlanOperation> operations;  ///< in document order

    friend bool operator==(const EditPlan&, const EditPlan&) = default;
};

/// JSON, in snake case (except inside `EditPlanTransform`, and the records of other modules that the plan
/// embeds, which keep their own keys). Optional members are written only when set and read as absent when
/// missing or null; a missing required key or a value of the wrong type throws `JsonDecodeError` with its
/// path. Unknown keys are ignored.
void to_json(Json& json, const EditPlanOrigin& origin);
void fromJson(const JsonReader& reader, EditPlanOrigin& origin);
void to_json(Json& json, const EditPlanTransition& transition);
void fromJson(const JsonReader& reader, EditPlanTransition& transition);
void to_json(Json& json, const EditPlanTransform& transform);
void fromJson(const JsonReader& reader, EditPlanTransform& transform);
void to_json(Json& json, const EditPlanCaptionWord& word);
void fromJson(const JsonReader& reader, EditPlanCaptionWord& word);
void to_json(Json& json, const EditPlanTextPayload& text);
void fromJson(const JsonReader& reader, EditPlanTextPayload& text);
void to_json(Json& json, const EditPlanOperation& operation);
void fromJson(const JsonReader& reader, EditPlanOperation& operation);
void to_json(Json& json, const EditPlanSource& source);
void fromJson(const JsonReader& reader, EditPlanSource& source);
void to_json(Json& json, const EditPlanTimeline& timeline);
void fromJson(const JsonReader& reader, EditPlanTimeline& timeline);
void to_json(Json& json, const EditPlan& plan);
void fromJson(const JsonReader& reader, EditPlan& plan);

}  // namespace morvane::engine
