#include "morvane/app/session/session_records.hpp"

#include <nlohmann/json.hpp>

#include "morvane/engine/support/uuid.hpp"

namespace morvane::app {

bool isBackground(MediaJobKind kind) noexcept {
    switch (kind) {
        case MediaJobKind::probe:
        case MediaJobKind::waveform:
        case MediaJobKind::filmstrip:
        case MediaJobKind::thumbnail:
        case MediaJobKind::proxy:
        case MediaJobKind::previewRebuild:
            return true;
        default:
            return false;
    }
}

bool isExclusive(MediaJobKind kind) noexcept {
    return kind == MediaJobKind::projectOpen || kind == MediaJobKind::projectSave;
}

std::string readUUID(const JsonReader& reader) {
    auto text = reader.get<std::string>();
    if (!isUUID(text)) reader.fail("expected a UUID");
    return text;
}

Date readDate(const JsonReader& reader) {
    const auto text = reader.get<std::string>();
    const auto date = parseISO8601(text);
    if (!date) reader.fail("expected an ISO 8601 date like \"2026-11-22T09:30:00Z\"");
    return *date;
}

std::vector<std::string> memberNames(const JsonReader& reader) {
    if (!reader.value().is_object()) reader.fail("expected an object");
    std::vector<std::string> names;
    for (const auto& item : reader.value().items())
        names.push_back(item.key());
    return names;
}

void to_json(Json& json, const CutItem& item) {
    json = Json::object();
    json["segmentID"] = item.segmentID;
    json["text"] = item.text;
    json["start"] = item.start;
    json["end"] = item.end;
    if (item.reason) json["reason"] = *item.reason;
    if (item.confidence) json["confidence"] = *item.confidence;
    json["accepted"] = item.accepted;
}

void fromJson(const JsonReader& reader, CutItem& item) {
    item.segmentID = reader["segmentID"].get<int>();
    item.text = reader["text"].get<std::string>();
    item.start = reader["start"].get<RationalTime>();
    item.end = reader["end"].get<RationalTime>();
    item.reason = reader.optional<std::string>("reason");
    item.confidence = reader.optional<double>("confidence");
    item.accepted = reader["accepted"].get<bool>();
}

void to_json(Json& json, const SourceTranscriptRecord& record) {
    json = Json::object();
    json["transcript"] = record.transcript;
    if (record.segments) json["segments"] = *record.segments;
    json["removedWordIDs"] = record.removedWordIDs;
    json["cutItems"] = record.cutItems;
    if (record.mediaEvidence) json["mediaEvidence"] = *record.mediaEvidence;
}

void fromJson(const JsonReader& reader, SourceTranscriptRecord& record) {
    record.transcript = reader["transcript"].get<intelligence::TranscriptDocument>();
    record.segments = reader.optional<intelligence::SegmentDocument>("segments");
    record.removedWordIDs = reader.valueOr<std::vector<int>>("removedWordIDs", {});
    record.cutItems = reader.valueOr<std::vector<CutItemSnapshot>>("cutItems", {});
    record.mediaEvidence = reader.optional<intelligence::MediaEvidenceDocument>("mediaEvidence");
}

void to_json(Json& json, const ChatMessage& message) {
    json = Json::object();
    json["id"] = message.id;
    json["role"] = kChatRoleNames.text(message.role);
    json["text"] = message.text;
    json["date"] = formatISO8601(message.date);
    json["isCutCheckpoint"] = message.isCutCheckpoint;
    json["isThinking"] = message.isThinking;
}

void fromJson(const JsonReader& reader, ChatMessage& message) {
    message.id = readUUID(reader["id"]);
    message.role = readCase(reader["role"], kChatRoleNames);
    message.text = reader["text"].get<std::string>();
    message.date = readDate(reader["date"]);
    message.isCutCheckpoint = reader.valueOr("isCutCheckpoint", false);
    message.isThinking = reader.valueOr("isThinking", false);
}

void to_json(Json& json, const NamedCheckpoint& checkpoint) {
    json = Json::object();
    json["id"] = checkpoint.id;
    json["name"] = checkpoint.name;
    json["createdAt"] = formatISO8601(checkpoint.createdAt);
    if (checkpoint.messageID) json["messageID"] = *checkpoint.messageID;
    json["summary"] = checkpoint.summary;
}

void fromJson(const JsonReader& reader, NamedCheckpoint& checkpoint) {
    checkpoint.id = readUUID(reader["id"]);
    checkpoint.name = reader["name"].get<std::string>();
    checkpoint.createdAt = readDate(reader["createdAt"]);
    checkpoint.messageID =
        reader.has("messageID") ? std::optional(readUUID(reader["messageID"])) : std::nullopt;
    checkpoint.summary = reader["summary"].get<std::string>();
}

}  // namespace morvane::app
