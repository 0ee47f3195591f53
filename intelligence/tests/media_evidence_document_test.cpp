#include "morvane/intelligence/evidence/media_evidence_document.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace morvane::intelligence {
namespace {

TEST(MediaEvidenceDocument, roundTripsAndRefusesUnknownVocabulary) {
    MediaEvidenceDocument document{
        .sourceURL = "/m/talk.mp4",
        .locale = "en-US",
        .durationSeconds = 30.5,
        .generatedAt = "2026-11-22T03:00:00Z",
        .silenceSpans = {{1.0, 2.5}},
        .disfluencyWordIDs = {3},
        .lowConfidenceWordIDs = {4, 9},
        .phraseSpans = {{0, EvidenceSpanLevel::phrase, "so today", 0.1, 0.9, 0, 1, {}}},
        .sentenceSpans = {{0, EvidenceSpanLevel::sentence, "So today we cut.", 0.1, 1.9, 0, 3, {0}}},
        .topicSpans = {{0, EvidenceSpanLevel::topic, "So today we cut.", 0.1, 1.9, 0, 3, {0, 1}}},
        .frameSamples = {{0.2, EvidenceFrameRole::opener, std::nullopt},
                         {0.1, EvidenceFrameRole::topicBoundary, "So today we cut."}},
        .notes = {"2 low-confidence words — review transcript before destructive cuts."}};
    const std::string text = dumpJson(Json(document));
    const Json json = parseJson(text, "evidence.json");
    EXPECT_EQ(JsonReader(json, "evidence.json").get<MediaEvidenceDocument>(), document);
    EXPECT_EQ(text.find("\"note\": null"), std::string::npos);

    Json bad = json;
    bad["topicSpans"][0]["level"] = "chapter";
    try {
        (void)JsonReader(bad, "evidence.json").get<MediaEvidenceDocument>();
        ADD_FAILURE();
    } catch (const JsonDecodeError& e) {
        EXPECT_STREQ(e.what(), "evidence.json: /topicSpans/0/level: unknown value \"chapter\"");
    }
}

}  // namespace
}  // namespace morvane::intelligence
