#include "morvane/intelligence/evidence/media_evidence_document.hpp"

#include <nlohmann/json.hpp>

namespace morvane::intelligence {
void to_json(Json& json, const EvidenceSilenceSpan& span) {
    json = Json::object();
    json["startSeconds"] = span.startSeconds;
    json["endSeconds"] = span.endSeconds;
}

void fromJson(const JsonReader& reader, EvidenceSilenceSpan& span) {
    span.startSeconds = reader["startSeconds"].get<double>();
    span.endSeconds = reader["endSeconds"].get<double>();
}

void to_json(Json& json, const EvidenceSpan& span) {
    json = Json::object();
    json["id"] = span.id;
    json["level"] = kEvidenceSpanLevelNames.text(span.level);
    json["text"] = span.text;
    json["startSeconds"] = span.startSeconds;
    json["endSeconds"] = span.endSeconds;
    json["wordStartID"] = span.wordStartID;
    json["wordEndID"] = span.wordEndID;
    json["segmentIDs"] = span.segmentIDs;
}

void fromJson(const JsonReader& reader, EvidenceSpan& span) {
    span.id = reader["id"].get<int>();
    span.level = readCase(reader["level"], kEvidenceSpanLevelNames);
    span.text = reader["text"].get<std::string>();
    span.startSeconds = reader["startSeconds"].get<double>();
    span.endSeconds = reader["endSeconds"].get<double>();
    span.wordStartID = reader["wordStartID"].get<int>();
    span.wordEndID = reader["wordEndID"].get<int>();
    span.segmentIDs = reader["segmentIDs"].get<std::vector<int>>();
}

void to_json(Json& json, const EvidenceFrameSample& sample) {
    json = Json::object();
    json["seconds"] = sample.seconds;
    json["role"] = kEvidenceFrameRoleNames.text(sample.role);
    if (sample.note) json["note"] = *sample.note;
}

void fromJson(const JsonReader& reader, EvidenceFrameSample& sample) {
    sample.seconds = reader["seconds"].get<double>();
    sample.role = readCase(reader["role"], kEvidenceFrameRoleNames);
    sample.note = reader.optional<std::string>("note");
}

void to_json(Json& json, const MediaEvidenceDocument& document) {
    json = Json::object();
    json["sourceURL"] = document.sourceURL;
    json["locale"] = document.locale;
    json["durationSeconds"] = document.durationSeconds;
    json["generatedAt"] = document.generatedAt;
    json["silenceSpans"] = document.silenceSpans;
    json["disfluencyWordIDs"] = document.disfluencyWordIDs;
    json["lowConfidenceWordIDs"] = document.lowConfidenceWordIDs;
    json["phraseSpans"] = document.phraseSpans;
    json["sentenceSpans"] = document.sentenceSpans;
    json["topicSpans"] = document.topicSpans;
    json["frameSamples"] = document.frameSamples;
    json["notes"] = document.notes;
}

void fromJson(const JsonReader& reader, MediaEvidenceDocument& document) {
    document.sourceURL = reader["sourceURL"].get<std::string>();
    document.locale = reader["locale"].get<std::string>();
    document.durationSeconds = reader["durationSeconds"].get<double>();
    document.generatedAt = reader["generatedAt"].get<std::string>();
    document.silenceSpans = reader["silenceSpans"].get<std::vector<EvidenceSilenceSpan>>();
    document.disfluencyWordIDs = reader["disfluencyWordIDs"].get<std::vector<int>>();
    document.lowConfidenceWordIDs = reader["lowConfidenceWordIDs"].get<std::vector<int>>();
    document.phraseSpans = reader["phraseSpans"].get<std::vector<EvidenceSpan>>();
    document.sentenceSpans = reader["sentenceSpans"].get<std::vector<EvidenceSpan>>();
    document.topicSpans = reader["topicSpans"].get<std::vector<EvidenceSpan>>();
    document.frameSamples = reader["frameSamples"].get<std::vector<EvidenceFrameSample>>();
    document.notes = reader["notes"].get<std::vector<std::string>>();
}

}  // namespace morvane::intelligence
