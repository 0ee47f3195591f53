#include "morvane/engine/plan/edit_plan.hpp"

#include <nlohmann/json.hpp>

#include "support/json_coding.hpp"

namespace morvane::engine {
namespace {

using detail::putIfPresent;

// The text payload's many members with defaults, by key. The defaults themselves live in the record's
// member initialisers, so reading falls back to a default-constructed payload.
struct NumberMember {
    const char* key;
    double EditPlanTextPayload::*member;
};
struct OptionalNumberMember {
    const char* key;
    std::optional<double> EditPlanTextPayload::*member;
};
struct TextMember {
    const char* key;
    std::string EditPlanTextPayload::*member;
};

constexpr NumberMember kTextNumbers[] = {
    {"font_size", &EditPlanTextPayload::fontSize},
    {"text_red", &EditPlanTextPayload::textRed},
    {"text_green", &EditPlanTextPayload::textGreen},
    {"text_blue", &EditPlanTextPayload::textBlue},
    {"text_alpha", &EditPlanTextPayload::textAlpha},
    {"margin", &EditPlanTextPayload::margin},
    {"stroke_width", &EditPlanTextPayload::strokeWidth},
    {"stroke_red", &EditPlanTextPayload::strokeRed},
    {"stroke_green", &EditPlanTextPayload::strokeGreen},
    {"stroke_blue", &EditPlanTextPayload::strokeBlue},
    {"stroke_alpha", &EditPlanTextPayload::strokeAlpha},
    {"shadow_offset_x", &EditPlanTextPayload::shadowOffsetX},
    {"shadow_offset_y", &EditPlanTextPayload::shadowOffsetY},
    {"shadow_blur", &EditPlanTextPayload::shadowBlur},
    {"shadow_red", &EditPlanTextPayload::shadowRed},
    {"shadow_green", &EditPlanTextPayload::shadowGreen},
    {"shadow_blue", &EditPlanTextPayload::shadowBlue},
    {"shadow_alpha", &EditPlanTextPayload::shadowAlpha},
    {"highlight_red", &EditPlanTextPayload::highlightRed},
    {"highlight_green", &EditPlanTextPayload::highlightGreen},
    {"highlight_blue", &EditPlanTextPayload::highlightBlue},
    {"highlight_alpha", &EditPlanTextPayload::highlightAlpha},
};

constexpr OptionalNumberMember kTextOptionalNumbers[] = {
    {"background_red", &EditPlanTextPayload::backgroundRed},
    {"background_green", &EditPlanTextPayload::backgroundGreen},
    {"background_blue", &EditPlanTextPayload::backgroundBlue},
    {"background_alpha", &EditPlanTextPayload::backgroundAlpha},
};

constexpr TextMember kTextStrings[] = {
    {"font_name", &EditPlanTextPayload::fontName},
    {"horizontal_align", &EditPlanTextPayload::horizontalAlign},
    {"vertical_position", &EditPlanTextPayload::verticalPosition},
    {"preset", &EditPlanTextPayload::preset},
};

}  // namespace

ProjectFormat EditPlanTimeline::resolvedFormat(std::optional<std::string> fallbackFrameDuration) const {
    std::string duration = frameDuration;
    if (duration.empty()) duration = fallbackFrameDuration.value_or("1001/30000");
    const auto size = renderSize ? ProjectFormatParser::parseRenderSize(*renderSize) : std::nullopt;
    // Without a usable render size the colour space is not read: plans without one have always rendered
    // as rec709 1080p, and keep doing so.
    if (!size) return ProjectFormat::fromTimelineFrameDuration(std::move(duration));
    const auto space = colorSpace ? kProjectColorSpaceNames.parse(*colorSpace) : std::nullopt;
    return {ProjectFormatPreset::custom, size->width, size->height, std::move(duration),
            space.value_or(ProjectColorSpace::rec709)};
}

void to_json(Json& json, const EditPlanOrigin& origin) {
    json = Json::object();
    json["kind"] = origin.kind;
    putIfPresent(json, "segment_ids", origin.segmentIDs);
}

void fromJson(const JsonReader& reader, EditPlanOrigin& origin) {
    origin.kind = reader["kind"].get<std::string>();
    origin.segmentIDs = reader.optional<std::vector<std::int64_t>>("segment_ids");
}

void to_json(Json& json, const EditPlanTransition& transition) {
    json = Json::object();
    json["kind"] = transition.kind;
    json["duration"] = transition.duration;
}

void fromJson(const JsonReader& reader, EditPlanTransition& transition) {
    transition.kind = reader["kind"].get<std::string>();
    transition.duration = reader["duration"].get<std::string>();
}

void to_json(Json& json, const EditPlanTransform& transform) {
    json = Json::object();
    putIfPresent(json, "sourceRect", transform.sourceRect);
    putIfPresent(json, "destinationRect", transform.destinationRect);
}

void fromJson(const JsonReader& reader, EditPlanTransform& transform) {
    transform.sourceRect = reader.optional<EditPlanRect>("sourceRect");
    transform.destinationRect = reader.optional<EditPlanRect>("destinationRect");
}

void to_json(Json& json, const EditPlanCaptionWord& word) {
    json = Json::object();
    json["text"] = word.text;
    json["start"] = word.start;
    json["end"] = word.end;
}

void fromJson(const JsonReader& reader, EditPlanCaptionWord& word) {
    word.text = reader["text"].get<std::string>();
    word.start = reader["start"].get<std::string>();
    word.end = reader["end"].get<std::string>();
}

void to_json(Json& json, const EditPlanTextPayload& text) {
    json = Json::object();
    json["content"] = text.content;
    for (const auto& [key, member] : kTextNumbers)
        json[key] = text.*member;
    for (const auto& [key, member] : kTextOptionalNumbers)
        putIfPresent(json, key, text.*member);
    for (const auto& [key, member] : kTextStrings)
        json[key] = text.*member;
    putIfPresent(json, "caption_words", text.captionWords);
}

void fromJson(const JsonReader& reader, EditPlanTextPayload& text) {
    const EditPlanTextPayload defaults;
    text.content = reader["content"].get<std::string>();
    for (const auto& [key, member] : kTextNumbers)
        text.*member = reader.valueOr<double>(key, defaults.*member);
    for (const auto& [key, member] : kTextOptionalNumbers)
        text.*member = reader.optional<double>(key);
    for (const auto& [key, member] : kTextStrings)
        text.*member = reader.valueOr<std::string>(key, defaults.*member);
    text.captionWords = reader.optional<std::vector<EditPlanCaptionWord>>("caption_words");
}

void to_json(Json& json, const EditPlanOperation& op) {
    json = Json::object();
    json["type"] = op.type;
    json["source_id"] = op.sourceID;
    json["start"] = op.start;
    json["end"] = op.end;
    putIfPresent(json, "origin", op.origin);
    putIfPresent(json, "confidence", op.confidence);
    putIfPresent(json, "reason", op.reason);
    putIfPresent(json, "timeline_start", op.timelineStart);
    putIfPresent(json, "track_id", op.trackID);
    putIfPresent(json, "label", op.label);
    putIfPresent(json, "audio_gain", op.audioGain);
    putIfPresent(json, "playback_rate", op.playbackRate);
    putIfPresent(json, "text", op.text);
    putIfPresent(json, "transform", op.transform);
    putIfPresent(json, "slot_id", op.slotID);
    putIfPresent(json, "reframe_keyframes", op.reframeKeyframes);
    putIfPresent(json, "matte", op.matte);
    putIfPresent(json, "transition", op.transition);
    putIfPresent(json, "presentation_style", op.presentationStyle);
    putIfPresent(json, "cursor_style", op.cursorStyle);
    putIfPresent(json, "cursor_track_id", op.cursorTrackID);
    putIfPresent(json, "zoom_regions", op.zoomRegions);
}

void fromJson(const JsonReader& reader, EditPlanOperation& op) {
    op.type = reader["type"].get<std::string>();
    op.sourceID = reader["source_id"].get<std::string>();
    op.start = reader["start"].get<std::string>();
    op.end = reader["end"].get<std::string>();
    op.origin = reader.optional<EditPlanOrigin>("origin");
    op.confidence = reader.optional<double>("confidence");
    op.reason = reader.optional<std::string>("reason");
    op.timelineStart = reader.optional<std::string>("timeline_start");
    op.trackID = reader.optional<std::string>("track_id");
    op.label = reader.optional<std::string>("label");
    op.audioGain = reader.optional<double>("audio_gain");
    op.playbackRate = reader.optional<double>("playback_rate");
    op.text = reader.optional<EditPlanTextPayload>("text");
    op.transform = reader.optional<EditPlanTransform>("transform");
    op.slotID = reader.optional<std::string>("slot_id");
    op.reframeKeyframes = reader.optional<std::vector<ReframeKeyframe>>("reframe_keyframes");
    op.matte = reader.optional<ClipMatte>("matte");
    op.transition = reader.optional<EditPlanTransition>("transition");
    op.presentationStyle = reader.optional<ClipPresentationStyle>("presentation_style");
    op.cursorStyle = reader.optional<CursorStyle>("cursor_style");
    op.cursorTrackID = reader.optional<std::string>("cursor_track_id");
    op.zoomRegions = reader.optional<std::vector<ClipZoomRegion>>("zoom_regions");
}

void to_json(Json& json, const EditPlanSource& source) {
    json = Json::object();
    json["id"] = source.id;
    json["url"] = source.url;
    json["vfr"] = source.vfr;
    json["frame_duration"] = source.frameDuration;
    putIfPresent(json, "cursor_track", source.cursorTrack);
}

void fromJson(const JsonReader& reader, EditPlanSource& source) {
    source.id = reader["id"].get<std::string>();
    source.url = reader["url"].get<std::string>();
    source.vfr = reader["vfr"].get<bool>();
    source.frameDuration = reader["frame_duration"].get<std::string>();
    source.cursorTrack = reader.optional<CursorTrack>("cursor_track");
}

void to_json(Json& json, const EditPlanTimeline& timeline) {
    json = Json::object();
    json["frame_duration"] = timeline.frameDuration;
    putIfPresent(json, "render_size", timeline.renderSize);
    putIfPresent(json, "color_space", timeline.colorSpace);
}

void fromJson(const JsonReader& reader, EditPlanTimeline& timeline) {
    timeline.frameDuration = reader["frame_duration"].get<std::string>();
    timeline.renderSize = reader.optional<std::string>("render_size");
    timeline.colorSpace = reader.optional<std::string>("color_space");
}

void to_json(Json& json, const EditPlan& plan) {
    json = Json::object();
    json["version"] = plan.version;
    json["timeline"] = plan.timeline;
    json["sources"] = plan.sources;
    json["operations"] = plan.operations;
}

void fromJson(const JsonReader& reader, EditPlan& plan) {
    plan.version = reader["version"].get<std::string>();
    plan.timeline = reader["timeline"].get<EditPlanTimeline>();
    plan.sources = reader["sources"].get<std::vector<EditPlanSource>>();
    plan.operations = reader["operations"].get<std::vector<EditPlanOperation>>();
}

}  // namespace morvane::engine
