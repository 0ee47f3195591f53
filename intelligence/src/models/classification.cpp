#include "morvane/intelligence/models/classification.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_set>

namespace morvane::intelligence {

std::string_view label(ClassificationModelBackend backend) {
    switch (backend) {
        case ClassificationModelBackend::onDevice:
            return "On-device";
        case ClassificationModelBackend::remoteModel:
            return "Remote model";
    }
    return "";
}

ClassificationDocument ClassificationDocument::make(ClassificationDocument fields) {
    if (fields.segmentResults.empty()) {
        const std::unordered_set<int> kept(fields.keepSegmentIDs.begin(), fields.keepSegmentIDs.end());
        fields.segmentResults.reserve(fields.chunkSegmentIDs.size());
        for (int id : fields.chunkSegmentIDs) {
            const bool keep = kept.contains(id);
            const double confidence =
                keep ? inferredKeepConfidence : std::max(1.0 - inferredKeepConfidence, 0.15);
            fields.segmentResults.push_back({id, keep, confidence, std::nullopt});
        }
    }
    return fields;
}

const SegmentClassification* ClassificationRun::classification(int segmentID) const {
    for (const auto& document : results) {
        for (const auto& verdict : document.segmentResults) {
            if (verdict.segmentID == segmentID) return &verdict;
        }
    }
    return nullptr;
}

std::optional<double> ClassificationRun::confidence(int segmentID) const {
    const auto* verdict = classification(segmentID);
    return verdict ? std::optional(verdict->confidence) : std::nullopt;
}

std::optional<std::string> ClassificationRun::reason(int segmentID) const {
    const auto* verdict = classification(segmentID);
    return verdict ? verdict->reason : std::nullopt;
}

void to_json(Json& json, const SegmentClassification& verdict) {
    json = Json::object();
    json["segmentID"] = verdict.segmentID;
    json["keep"] = verdict.keep;
    json["confidence"] = verdict.confidence;
    if (verdict.reason) json["reason"] = *verdict.reason;
}

void fromJson(const JsonReader& reader, SegmentClassification& verdict) {
    verdict.segmentID = reader["segmentID"].get<int>();
    verdict.keep = reader["keep"].get<bool>();
    verdict.confidence = reader["confidence"].get<double>();
    verdict.reason = reader.optional<std::string>("reason");
}

void to_json(Json& json, const ClassificationDocument& document) {
    json = Json::object();
    json["instruction"] = document.instruction;
    json["chunkIndex"] = document.chunkIndex;
    json["chunkSegmentIDs"] = document.chunkSegmentIDs;
    json["keepSegmentIDs"] = document.keepSegmentIDs;
    json["segmentResults"] = document.segmentResults;
    if (document.estimatedPromptTokens) json["estimatedPromptTokens"] = *document.estimatedPromptTokens;
    if (document.modelNotes) json["modelNotes"] = *document.modelNotes;
    if (document.rawResponse) json["rawResponse"] = *document.rawResponse;
}

void fromJson(const JsonReader& reader, ClassificationDocument& document) {
    document.instruction = reader["instruction"].get<std::string>();
    document.chunkIndex = reader["chunkIndex"].get<int>();
    document.chunkSegmentIDs = reader["chunkSegmentIDs"].get<std::vector<int>>();
    document.keepSegmentIDs = reader["keepSegmentIDs"].get<std::vector<int>>();
    document.segmentResults = reader["segmentResults"].get<std::vector<SegmentClassification>>();
    document.estimatedPromptTokens = reader.optional<int>("estimatedPromptTokens");
    document.modelNotes = reader.optional<std::string>("modelNotes");
    document.rawResponse = reader.optional<std::string>("rawResponse");
}

void to_json(Json& json, const ClassificationRun& run) {
    json = Json::object();
    json["instruction"] = run.instruction;
    json["results"] = run.results;
    json["mergedKeepSegmentIDs"] = run.mergedKeepSegmentIDs;
    if (run.modelBackend) json["modelBackend"] = kClassificationModelBackendNames.text(*run.modelBackend);
    json["usedOnDeviceFallback"] = run.usedOnDeviceFallback;
}

void fromJson(const JsonReader& reader, ClassificationRun& run) {
    run.instruction = reader["instruction"].get<std::string>();
    run.results = reader["results"].get<std::vector<ClassificationDocument>>();
    run.mergedKeepSegmentIDs = reader["mergedKeepSegmentIDs"].get<std::vector<int>>();
    const auto backend = reader.optional<std::string>("modelBackend");
    run.modelBackend = backend ? kClassificationModelBackendNames.parse(*backend) : std::nullopt;
    run.usedOnDeviceFallback = reader["usedOnDeviceFallback"].get<bool>();
}

}  // namespace morvane::intelligence
