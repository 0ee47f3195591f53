#include "morvane/app/timeline/timeline_document.hpp"

#include "morvane/app/session/session_records.hpp"

#include <nlohmann/json.hpp>

#include "morvane/engine/support/uuid.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::app {

using engine::ClipTimeMap;

RationalTime TimelineClip::sourceSpan() const noexcept {
    if (assemblyRanges && !assemblyRanges->empty()) {
        RationalTime total = RationalTime::zero;
        for (const auto& range : *assemblyRanges)
            total = total.adding(range.sourceOut.subtracting(range.sourceIn));
        return total;
    }
    return sourceOut.subtracting(sourceIn);
}

std::vector<TimelineSourceRange> TimelineClip::transcriptSourceRanges() const {
    if (originSourceRanges && !originSourceRanges->empty()) return *originSourceRanges;
    if (assemblyRanges && !assemblyRanges->empty()) return *assemblyRanges;
    return {{sourceIn, sourceOut}};
}

ClipTimeMap TimelineClip::clipTimeMap() const {
    std::vector<ClipTimeMap::Span> spans;
    for (const auto& range : transcriptSourceRanges())
        spans.push_back({range.sourceIn, range.sourceOut});
    return ClipTimeMap(timelineStart, std::move(spans), playbackRate);
}

std::optional<std::vector<engine::ReframeKeyframe>> TimelineClip::resolvedReframeKeyframes() const {
    if (zoomRegions && !zoomRegions->empty()) {
        std::vector<engine::ReframeKeyframe> keyframes;
        for (const auto& region : *zoomRegions)
            keyframes.push_back(region.asKeyframe());
        return keyframes;
    }
    return reframeKeyframes;
}

std::string TimelineClip::timelineBadgeLabel() const {
    if (kind == TimelineClipKinds::text || kind == TimelineClipKinds::image) return label;
    if (!engine::ClipSpeed::needsScale(playbackRate)) return label;
    return engine::ClipSpeed::displayLabel(playbackRate) + " " + label;
}

bool TimelineClip::preservesEditChrome() const noexcept {
    return transform || slotID || (reframeKeyframes && !reframeKeyframes->empty()) || matte ||
           presentationStyle || cursorStyle || cursorTrackID || (zoomRegions && !zoomRegions->empty());
}

TimelineClip TimelineClip::inheritingPictureEffects(const TimelineClip& donor) const {
    TimelineClip clip = *this;
    clip.transform = donor.transform;
    clip.slotID = donor.slotID;
    clip.matte = donor.matte;
    clip.presentationStyle = donor.presentationStyle;
    clip.cursorStyle = donor.cursorStyle;
    clip.cursorTrackID = donor.cursorTrackID;
    const ClipTimeMap from = donor.clipTimeMap();
    const ClipTimeMap onto = clip.clipTimeMap();
    clip.reframeKeyframes.reset();
    clip.zoomRegions.reset();
    if (donor.reframeKeyframes && !donor.reframeKeyframes->empty()) {
        clip.reframeKeyframes = ClipTimeMap::remapKeyframes(*donor.reframeKeyframes, from, onto);
    }
    if (donor.zoomRegions && !donor.zoomRegions->empty()) {
        auto regions = ClipTimeMap::remapZoomRegions(*donor.zoomRegions, from, onto);
        if (!regions.empty()) clip.zoomRegions = std::move(regions);
    }
    return clip;
}

void TimelineClip::moveTo(RationalTime start) {
    const RationalTime delta = start.subtracting(timelineStart);
    timelineStart = start;
    if (delta.value == 0) return;
    if (reframeKeyframes) {
        for (auto& keyframe : *reframeKeyframes) {
            keyframe.programStart = keyframe.programStart.adding(delta);
            keyframe.programEnd = keyframe.programEnd.adding(delta);
        }
    }
    if (zoomRegions) {
        for (auto& region : *zoomRegions) {
            region.timelineStart = region.timelineStart.adding(delta);
            region.timelineEnd = region.timelineEnd.adding(delta);
        }
    }
}

std::string TimelineTrack::displayName() const {
    if (kind == TimelineTrackKind::audio) return "Audio";
    if (kind == TimelineTrackKind::program) return name.empty() ? "Rough Cut" : name;
    if (!role) return name;
    switch (*role) {
        case TimelineTrackRole::storyline:
            return "Storyline";
        case TimelineTrackRole::dialogue:
            return "Dialogue";
        case TimelineTrackRole::music:
            return "Audio";
        case TimelineTrackRole::sfx:
            return "SFX";
        case TimelineTrackRole::broll:
            return "B-Roll";
        case TimelineTrackRole::titles:
            return "Titles";
        case TimelineTrackRole::captions:
            return "Captions";
        case TimelineTrackRole::layout:
            return "Layout";
    }
    return name;
}

TimelineDocument TimelineDocument::makeDefault(std::string frameDuration) {
    TimelineDocument document;
    document.frameDuration = frameDuration;
    document.projectFormat = engine::ProjectFormat::fromTimelineFrameDuration(std::move(frameDuration));
    document.tracks = {
        {std::string(TimelineTrackIDs::source),
         TimelineTrackKind::source,
         "Storyline",
         TimelineTrackRole::storyline,
         {}},
        {std::string(TimelineTrackIDs::program),
         TimelineTrackKind::program,
         "Rough Cut",
         TimelineTrackRole::dialogue,
         {}},
        {std::string(TimelineTrackIDs::overlay),
         TimelineTrackKind::overlay,
         "Overlay",
         TimelineTrackRole::broll,
         {}},
        {std::string(TimelineTrackIDs::audio),
         TimelineTrackKind::audio,
         "Audio",
         TimelineTrackRole::music,
         {}},
        {std::string(TimelineTrackIDs::text), TimelineTrackKind::text, "Text", TimelineTrackRole::titles, {}},
    };
    return document;
}

const TimelineTrack* TimelineDocument::track(std::string_view id) const noexcept {
    for (const auto& t : tracks) {
        if (t.id == id) return &t;
    }
    return nullptr;
}

TimelineTrack* TimelineDocument::track(std::string_view id) noexcept {
    for (auto& t : tracks) {
        if (t.id == id) return &t;
    }
    return nullptr;
}

const std::vector<TimelineClip>& TimelineDocument::clips(std::string_view id) const noexcept {
    static const std::vector<TimelineClip> none;
    const TimelineTrack* t = track(id);
    return t ? t->clips : none;
}

void TimelineDocument::updateTrack(TimelineTrack newTrack) {
    if (TimelineTrack* existing = track(newTrack.id)) {
        *existing = std::move(newTrack);
    } else {
        tracks.push_back(std::move(newTrack));
    }
}

const TimelineClip* TimelineDocument::findClip(std::string_view clipID, std::string* trackID) const {
    for (const auto& t : tracks) {
        for (const auto& clip : t.clips) {
            if (clip.id == clipID) {
                if (trackID) *trackID = t.id;
                return &clip;
            }
        }
    }
    return nullptr;
}

namespace {

std::optional<std::string> optionalUUID(const JsonReader& reader, std::string_view key) {
    if (!reader.has(key)) return std::nullopt;
    return readUUID(reader[key]);
}

template <class T>
void putOptional(Json& json, const char* key, const std::optional<T>& value) {
    if (value) json[key] = *value;
}

}  // namespace

void to_json(Json& json, const TimelineSourceRange& range) {
    json = Json::object();
    json["sourceIn"] = range.sourceIn;
    json["sourceOut"] = range.sourceOut;
}

void fromJson(const JsonReader& reader, TimelineSourceRange& range) {
    range.sourceIn = reader["sourceIn"].get<RationalTime>();
    range.sourceOut = reader["sourceOut"].get<RationalTime>();
}

void to_json(Json& json, const TimelineClip& clip) {
    json = Json::object();
    json["id"] = clip.id;
    json["sourceID"] = clip.sourceID;
    json["label"] = clip.label;
    json["sourceIn"] = clip.sourceIn;
    json["sourceOut"] = clip.sourceOut;
    json["timelineStart"] = clip.timelineStart;
    putOptional(json, "originSegmentIDs", clip.originSegmentIDs);
    putOptional(json, "originWordIDs", clip.originWordIDs);
    putOptional(json, "assemblyRanges", clip.assemblyRanges);
    putOptional(json, "originSourceRanges", clip.originSourceRanges);
    putOptional(json, "textContent", clip.textContent);
    putOptional(json, "textStyle", clip.textStyle);
    putOptional(json, "captionWords", clip.captionWords);
    json["kind"] = clip.kind;
    json["audioGain"] = clip.audioGain;
    putOptional(json, "playbackRate", clip.playbackRate);
    putOptional(json, "connectedToClipID", clip.connectedToClipID);
    putOptional(json, "connectedOffset", clip.connectedOffset);
    putOptional(json, "slotID", clip.slotID);
    putOptional(json, "reframeKeyframes", clip.reframeKeyframes);
    putOptional(json, "transform", clip.transform);
    putOptional(json, "matte", clip.matte);
    putOptional(json, "cursorTrackID", clip.cursorTrackID);
    putOptional(json, "captureTakeID", clip.captureTakeID);
    putOptional(json, "presentationStyle", clip.presentationStyle);
    putOptional(json, "cursorStyle", clip.cursorStyle);
    putOptional(json, "zoomRegions", clip.zoomRegions);
}

void fromJson(const JsonReader& r, TimelineClip& clip) {
    clip.id = readUUID(r["id"]);
    clip.sourceID = r["sourceID"].get<std::string>();
    clip.label = r["label"].get<std::string>();
    clip.sourceIn = r["sourceIn"].get<RationalTime>();
    clip.sourceOut = r["sourceOut"].get<RationalTime>();
    clip.timelineStart = r["timelineStart"].get<RationalTime>();
    clip.originSegmentIDs = r.optional<std::vector<int>>("originSegmentIDs");
    clip.originWordIDs = r.optional<std::vector<int>>("originWordIDs");
    clip.assemblyRanges = r.optional<std::vector<TimelineSourceRange>>("assemblyRanges");
    clip.originSourceRanges = r.optional<std::vector<TimelineSourceRange>>("originSourceRanges");
    clip.textContent = r.optional<std::string>("textContent");
    clip.textStyle = r.optional<engine::TextClipStyle>("textStyle");
    clip.captionWords = r.optional<std::vector<engine::CaptionWordTiming>>("captionWords");
    clip.kind = r["kind"].get<std::string>();
    clip.audioGain = r["audioGain"].get<double>();
    clip.playbackRate = r.optional<double>("playbackRate");
    clip.connectedToClipID = optionalUUID(r, "connectedToClipID");
    clip.connectedOffset = r.optional<RationalTime>("connectedOffset");
    clip.slotID = r.optional<std::string>("slotID");
    clip.reframeKeyframes = r.optional<std::vector<engine::ReframeKeyframe>>("reframeKeyframes");
    clip.transform = r.optional<engine::EditPlanTransform>("transform");
    clip.matte = r.optional<engine::ClipMatte>("matte");
    clip.cursorTrackID = r.optional<std::string>("cursorTrackID");
    clip.captureTakeID = optionalUUID(r, "captureTakeID");
    clip.presentationStyle = r.optional<engine::ClipPresentationStyle>("presentationStyle");
    clip.cursorStyle = r.optional<engine::CursorStyle>("cursorStyle");
    clip.zoomRegions = r.optional<std::vector<engine::ClipZoomRegion>>("zoomRegions");
}

void to_json(Json& json, const TimelineTrack& track) {
    json = Json::object();
    json["id"] = track.id;
    json["kind"] = kTimelineTrackKindNames.text(track.kind);
    json["name"] = track.name;
    if (track.role) json["role"] = kTimelineTrackRoleNames.text(*track.role);
    json["clips"] = track.clips;
}

void fromJson(const JsonReader& reader, TimelineTrack& track) {
    track.id = reader["id"].get<std::string>();
    track.kind = readCase(reader["kind"], kTimelineTrackKindNames);
    track.name = reader["name"].get<std::string>();
    track.role =
        reader.has("role") ? std::optional(readCase(reader["role"], kTimelineTrackRoleNames)) : std::nullopt;
    track.clips = reader["clips"].get<std::vector<TimelineClip>>();
}

void to_json(Json& json, const TimelineMarker& marker) {
    json = Json::object();
    json["id"] = marker.id;
    json["name"] = marker.name;
    json["time"] = marker.time;
}

void fromJson(const JsonReader& reader, TimelineMarker& marker) {
    marker.id = readUUID(reader["id"]);
    marker.name = reader["name"].get<std::string>();
    marker.time = reader["time"].get<RationalTime>();
}

void to_json(Json& json, const TimelineLayoutRegion& region) {
    json = Json::object();
    json["id"] = region.id;
    json["layoutID"] = region.layoutID;
    json["timelineStart"] = region.timelineStart;
    json["timelineEnd"] = region.timelineEnd;
}

void fromJson(const JsonReader& reader, TimelineLayoutRegion& region) {
    region.id = readUUID(reader["id"]);
    region.layoutID = reader["layoutID"].get<std::string>();
    region.timelineStart = reader["timelineStart"].get<RationalTime>();
    region.timelineEnd = reader["timelineEnd"].get<RationalTime>();
}

void to_json(Json& json, const TimelineDocument& document) {
    json = Json::object();
    json["frameDuration"] = document.frameDuration;
    putOptional(json, "projectFormat", document.projectFormat);
    json["layoutRegions"] = document.layoutRegions;
    json["markers"] = document.markers;
    json["tracks"] = document.tracks;
}

void fromJson(const JsonReader& reader, TimelineDocument& document) {
    const JsonReader frame = reader["frameDuration"];
    document.frameDuration = frame.get<std::string>();
    // A bad frame duration would poison every time computed from it: refuse it here, with where.
    const auto parsed = RationalTime::tryParse(document.frameDuration);
    if (!parsed || parsed->value < 1) frame.fail("expected a positive frame duration like \"1001/30000\"");
    document.projectFormat = reader.optional<engine::ProjectFormat>("projectFormat");
    document.layoutRegions = reader["layoutRegions"].get<std::vector<TimelineLayoutRegion>>();
    document.markers = reader["markers"].get<std::vector<TimelineMarker>>();
    document.tracks = reader["tracks"].get<std::vector<TimelineTrack>>();
}

}  // namespace morvane::app
