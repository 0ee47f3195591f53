#include "morvane/intelligence/models/transcript.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {

std::vector<TranscriptDocument::DisfluencyHit> TranscriptDocument::disfluencyHitsFor(
    const std::vector<TranscriptWord>& words) {
    std::vector<DisfluencyHit> hits;
    for (const auto& word : words) {
        std::string token(trimmingPunctuation(lowercased(word.text)));
        if (std::find(hitTokens.begin(), hitTokens.end(), token) != hitTokens.end()) {
            hits.push_back({std::move(token), word.id, word.text});
        }
    }
    return hits;
}

double TranscriptKeepRangePadding::paddedEnd(double lastWordEnd, std::optional<double> nextKeptWordStart,
                                             double padSeconds) {
    const double padded = lastWordEnd + std::max(padSeconds, 0.0);
    if (!nextKeptWordStart) return padded;
    return std::max(std::min(padded, *nextKeptWordStart), lastWordEnd);
}

void to_json(Json& json, const TranscriptWord& word) {
    json = Json::object();
    json["id"] = word.id;
    json["text"] = word.text;
    json["start"] = word.start;
    json["end"] = word.end;
    if (word.confidence) json["confidence"] = *word.confidence;
    json["alternatives"] = word.alternatives;
}

void fromJson(const JsonReader& reader, TranscriptWord& word) {
    word.id = reader["id"].get<int>();
    word.text = reader["text"].get<std::string>();
    word.start = reader["start"].get<RationalTime>();
    word.end = reader["end"].get<RationalTime>();
    word.confidence = reader.optional<double>("confidence");
    word.alternatives = reader.valueOr<std::vector<std::string>>("alternatives", {});
}

void to_json(Json& json, const TranscriptDocument::DisfluencyHit& hit) {
    json = Json::object();
    json["token"] = hit.token;
    json["wordID"] = hit.wordID;
    json["text"] = hit.text;
}

void fromJson(const JsonReader& reader, TranscriptDocument::DisfluencyHit& hit) {
    hit.token = reader["token"].get<std::string>();
    hit.wordID = reader["wordID"].get<int>();
    hit.text = reader["text"].get<std::string>();
}

void to_json(Json& json, const TranscriptDocument& document) {
    json = Json::object();
    json["sourceURL"] = document.sourceURL;
    json["locale"] = document.locale;
    json["durationSeconds"] = document.durationSeconds;
    json["words"] = document.words;
    json["fullText"] = document.fullText;
    json["disfluencyHits"] = document.disfluencyHits;
}

void fromJson(const JsonReader& reader, TranscriptDocument& document) {
    document.sourceURL = reader["sourceURL"].get<std::string>();
    document.locale = reader["locale"].get<std::string>();
    document.durationSeconds = reader["durationSeconds"].get<double>();
    document.words = reader["words"].get<std::vector<TranscriptWord>>();
    document.fullText = reader["fullText"].get<std::string>();
    document.disfluencyHits = reader["disfluencyHits"].get<std::vector<TranscriptDocument::DisfluencyHit>>();
}

void to_json(Json& json, const TranscriptSegment& segment) {
    json = Json::object();
    json["id"] = segment.id;
    json["text"] = segment.text;
    json["start"] = segment.start;
    json["end"] = segment.end;
    json["wordStartID"] = segment.wordStartID;
    json["wordEndID"] = segment.wordEndID;
}

void fromJson(const JsonReader& reader, TranscriptSegment& segment) {
    segment.id = reader["id"].get<int>();
    segment.text = reader["text"].get<std::string>();
    segment.start = reader["start"].get<RationalTime>();
    segment.end = reader["end"].get<RationalTime>();
    segment.wordStartID = reader["wordStartID"].get<int>();
    segment.wordEndID = reader["wordEndID"].get<int>();
}

void to_json(Json& json, const SegmentDocument& document) {
    json = Json::object();
    json["sourceTranscript"] = document.sourceTranscript;
    json["segmentCount"] = document.segmentCount;
    json["segments"] = document.segments;
}

void fromJson(const JsonReader& reader, SegmentDocument& document) {
    document.sourceTranscript = reader["sourceTranscript"].get<std::string>();
    document.segmentCount = reader["segmentCount"].get<int>();
    document.segments = reader["segments"].get<std::vector<TranscriptSegment>>();
}

}  // namespace morvane::intelligence
