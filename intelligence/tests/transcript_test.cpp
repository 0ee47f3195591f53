#include "morvane/intelligence/models/transcript.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/intelligence/models/classification.hpp"

namespace morvane::intelligence {
namespace {

template <class T>
T decode(std::string_view text, std::string_view name = "doc.json") {
    const Json json = parseJson(text, name);
    return JsonReader(json, name).get<T>();
}

template <class T>
std::string decodeFailure(std::string_view text) {
    try {
        (void)decode<T>(text);
    } catch (const JsonDecodeError& e) {
        return e.what();
    }
    return "(decoded)";
}

TranscriptDocument sampleTranscript() {
    TranscriptDocument t;
    t.sourceURL = "/media/talk.mp4";
    t.locale = "en-US";
    t.durationSeconds = 12.5;
    t.words = {
        {0, "Um,", {600, 600}, {840, 600}, 0.4, {"Uhm"}},
        {1, "hello", {900, 600}, {1200, 600}, std::nullopt, {}},
        {2, "LIKE!", {1001, 30000}, {1300, 600}, 0.9, {}},
    };
    t.fullText = "Um, hello LIKE!";
    t.disfluencyHits = TranscriptDocument::disfluencyHitsFor(t.words);
    return t;
}

TEST(TranscriptDocument, roundTripsThroughJsonWithKeysInFieldOrder) {
    const TranscriptDocument original = sampleTranscript();
    const Json json = original;
    const std::string text = dumpJson(json, -1);
    EXPECT_TRUE(text.starts_with(
        R"({"sourceURL":"/media/talk.mp4","locale":"en-US","durationSeconds":12.5,"words":[)"))
        << text;
    EXPECT_NE(
        text.find(
            R"({"id":1,"text":"hello","start":{"value":900,"timescale":600},"end":{"value":1200,"timescale":600},"alternatives":[]})"),
        std::string::npos)
        << "absent confidence is omitted, empty alternatives written: " << text;
    EXPECT_EQ(decode<TranscriptDocument>(text), original);
    EXPECT_EQ(dumpJson(Json(decode<TranscriptDocument>(text)), -1), text);
}

TEST(TranscriptDocument, disfluencyHitsUseTheShortListOnLoweredTrimmedWords) {
    const auto hits = sampleTranscript().disfluencyHits;
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0], (TranscriptDocument::DisfluencyHit{"um", 0, "Um,"}));
    EXPECT_EQ(hits[1], (TranscriptDocument::DisfluencyHit{"like", 2, "LIKE!"}));

    // "hmm" is a filler to the cleanup rules but not a transcription hit; inner punctuation stays.
    const std::vector<TranscriptWord> words{{0, "hmm", {}, {}, {}, {}},
                                            {1, "u-um", {}, {}, {}, {}},
                                            {2, "«Uh»", {}, {}, {}, {}},
                                            {3, "ER", {}, {}, {}, {}}};
    const auto more = TranscriptDocument::disfluencyHitsFor(words);
    ASSERT_EQ(more.size(), 2u);
    EXPECT_EQ(more[0].wordID, 2);
    EXPECT_EQ(more[0].token, "uh");
    EXPECT_EQ(more[1].token, "er");
}

TEST(TranscriptWord, readsMissingAlternativesAsEmptyAndWritesThemBack) {
    const auto word = decode<TranscriptWord>(
        R"({"id":4,"text":"so","start":{"value":1,"timescale":600},"end":{"value":2,"timescale":600},"confidence":null})");
    EXPECT_TRUE(word.alternatives.empty());
    EXPECT_FALSE(word.confidence.has_value());
    EXPECT_EQ(
        dumpJson(Json(word), -1),
        R"({"id":4,"text":"so","start":{"value":1,"timescale":600},"end":{"value":2,"timescale":600},"alternatives":[]})");
}

TEST(TranscriptDocument, badDocumentsSayWhereTheyFailed) {
    const std::string word =
        R"({"id":0,"text":"a","start":{"value":0,"timescale":600},"end":{"value":6,"timescale":600}})";
    struct Case {
        std::string json;
        std::string message;
    } cases[] = {
        {R"({"sourceURL":"a","locale":"en","durationSeconds":1,"words":[],"fullText":""})",
         "doc.json: /disfluencyHits: required key is missing"},
        {R"({"sourceURL":"a","locale":"en","durationSeconds":"1","words":[],"fullText":"","disfluencyHits":[]})",
         "doc.json: /durationSeconds: expected a number, found a string"},
        {R"({"sourceURL":"a","locale":"en","durationSeconds":1,"words":[)" + word +
             R"(,{"id":1,"text":"b","start":{"value":0,"timescale":600}}],"fullText":"","disfluencyHits":[]})",
         "doc.json: /words/1/end: required key is missing"},
        {R"({"sourceURL":"a","locale":"en","durationSeconds":1,"words":[{"id":0,"text":"a","start":"0/600s","end":{"value":6,"timescale":600}}],"fullText":"","disfluencyHits":[]})",
         "doc.json: /words/0/start: expected an object, found a string"},
        {R"({"sourceURL":"a","locale":"en","durationSeconds":1,"words":[],"fullText":"","disfluencyHits":[{"token":"um","wordID":1.5,"text":"um"}]})",
         "doc.json: /disfluencyHits/0/wordID: expected an integer, found 1.500000"},
        {R"({"sourceURL":"a","locale":"en","durationSeconds":1,"words":{},"fullText":"","disfluencyHits":[]})",
         "doc.json: /words: expected an array, found an object"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(decodeFailure<TranscriptDocument>(c.json), c.message) << c.json;
    }
}

TEST(SegmentDocument, roundTripsAndRequiresEveryKey) {
    const SegmentDocument segments{"/media/talk.mp4",
                                   2,
                                   {{0, "Hello there.", {0, 600}, {900, 600}, 0, 1},
                                    {1, "Welcome back.", {960, 600}, {1500, 600}, 2, 3}}};
    const std::string text = dumpJson(Json(segments));
    EXPECT_EQ(decode<SegmentDocument>(text), segments);
    EXPECT_EQ(
        decodeFailure<SegmentDocument>(
            R"({"sourceTranscript":"a","segmentCount":1,"segments":[{"id":0,"text":"x","start":{"value":0,"timescale":1},"end":{"value":1,"timescale":1},"wordStartID":0}]})"),
        "doc.json: /segments/0/wordEndID: required key is missing");
}

TEST(TranscriptKeepRangePadding, padsIntoTheGapButNeverIntoTheNextWordOrBackwards) {
    using TranscriptKeepRangePadding::paddedEnd;
    struct Case {
        double lastEnd;
        std::optional<double> nextStart;
        double pad;
        double expected;
    } cases[] = {
        {10.0, 10.05, 0.15, 10.05}, {10.0, std::nullopt, 0.15, 10.15}, {10.0, 9.9, 0.15, 10.0},
        {10.0, 11.0, -1.0, 10.0},   {10.0, std::nullopt, -1.0, 10.0},  {10.0, 10.0, 0.15, 10.0},
        {10.0, 10.2, 0.15, 10.15},  {0.0, std::nullopt, 0.0, 0.0},
    };
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(paddedEnd(c.lastEnd, c.nextStart, c.pad), c.expected);
    }
    EXPECT_EQ(TranscriptKeepRangePadding::tailSeconds, 0.15);
}

TEST(ClassificationDocument, infersVerdictsOnlyWhenNoneAreGiven) {
    const auto inferred =
        ClassificationDocument::make({.chunkSegmentIDs = {1, 2, 3}, .keepSegmentIDs = {2, 9}});
    ASSERT_EQ(inferred.segmentResults.size(), 3u);
    const double expectedConfidence[] = {0.15, 0.85, 0.15};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(inferred.segmentResults[i].segmentID, static_cast<int>(i) + 1);
        EXPECT_EQ(inferred.segmentResults[i].keep, i == 1);
        EXPECT_NEAR(inferred.segmentResults[i].confidence, expectedConfidence[i], 1e-12);
        EXPECT_FALSE(inferred.segmentResults[i].reason.has_value());
    }
    EXPECT_TRUE(ClassificationDocument::make({.keepSegmentIDs = {1}}).segmentResults.empty());

    const SegmentClassification given{1, true, 0.5, "x"};
    const auto explicitOnes = ClassificationDocument::make(
        {.chunkSegmentIDs = {1, 2}, .keepSegmentIDs = {1}, .segmentResults = {given}});
    EXPECT_EQ(explicitOnes.segmentResults, std::vector{given});

    // Reading never infers: the verdicts are required as written.
    EXPECT_EQ(decodeFailure<ClassificationDocument>(
                  R"({"instruction":"x","chunkIndex":0,"chunkSegmentIDs":[1],"keepSegmentIDs":[1]})"),
              "doc.json: /segmentResults: required key is missing");
    EXPECT_TRUE(
        decode<ClassificationDocument>(
            R"({"instruction":"x","chunkIndex":0,"chunkSegmentIDs":[1],"keepSegmentIDs":[1],"segmentResults":[]})")
            .segmentResults.empty());
}

TEST(ClassificationRun, roundTripsAndReadsUnknownBackendsAsNone) {
    ClassificationRun run{.instruction = "Remove silence.",
                          .mergedKeepSegmentIDs = {0, 2},
                          .modelBackend = ClassificationModelBackend::remoteModel,
                          .usedOnDeviceFallback = true};
    run.results.push_back(ClassificationDocument::make({.instruction = "Remove silence.",
                                                        .chunkSegmentIDs = {0, 1, 2},
                                                        .keepSegmentIDs = {0, 2},
                                                        .estimatedPromptTokens = 420,
                                                        .modelNotes = "two_pass",
                                                        .rawResponse = "{\"keep\":[0,2]}"}));
    const std::string text = dumpJson(Json(run));
    EXPECT_NE(text.find("\"modelBackend\": \"remoteModel\""), std::string::npos) << text;
    EXPECT_EQ(decode<ClassificationRun>(text), run);

    const auto other = decode<ClassificationRun>(
        R"({"instruction":"x","results":[],"mergedKeepSegmentIDs":[],"modelBackend":"privateCloudCompute","usedOnDeviceFallback":false})");
    EXPECT_FALSE(other.modelBackend.has_value());
    const auto rule = ClassificationRun{.instruction = "x"};
    EXPECT_EQ(dumpJson(Json(rule), -1),
              R"({"instruction":"x","results":[],"mergedKeepSegmentIDs":[],"usedOnDeviceFallback":false})");
    EXPECT_EQ(label(ClassificationModelBackend::onDevice), "On-device");
    EXPECT_EQ(label(ClassificationModelBackend::remoteModel), "Remote model");
}

TEST(ClassificationRun, findsTheFirstVerdictAcrossDocuments) {
    ClassificationRun run;
    run.results.push_back(ClassificationDocument::make(
        {.segmentResults = {{1, true, 0.9, "first"}, {1, false, 0.1, "shadowed"}}}));
    run.results.push_back(ClassificationDocument::make({.segmentResults = {{2, false, 0.3, std::nullopt}}}));
    EXPECT_EQ(run.reason(1), "first");
    EXPECT_EQ(run.confidence(2), 0.3);
    EXPECT_FALSE(run.reason(2).has_value());
    EXPECT_EQ(run.classification(3), nullptr);
    EXPECT_FALSE(run.confidence(3).has_value());
}

}  // namespace
}  // namespace morvane::intelligence
