#include "morvane/intelligence/evidence/media_evidence_builder.hpp"

#include <gtest/gtest.h>

#include "morvane/intelligence/segmentation/segmenter.hpp"
#include "morvane/intelligence/support/regex.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using engine::SilenceSpan;
using testing::segmentOf;
using testing::TranscriptBuilder;

std::vector<EvidenceSpan> topicsNamed(int count) {
    std::vector<EvidenceSpan> topics;
    for (int i = 0; i < count; ++i) {
        topics.push_back({.id = i,
                          .level = EvidenceSpanLevel::topic,
                          .text = "topic " + std::to_string(i),
                          .startSeconds = i * 1.5});
    }
    return topics;
}

TEST(MediaEvidenceBuilder, samplesFixedFramesThenTopicStarts) {
    struct Case {
        const char* name;
        double duration;
        int topics;
        int maxFrames;
        std::vector<std::pair<double, EvidenceFrameRole>> expected;
    } cases[] = {
        {"ten seconds",
         10.0,
         0,
         12,
         {{0.2, EvidenceFrameRole::opener},
          {5.0, EvidenceFrameRole::midpoint},
          {9.0, EvidenceFrameRole::closer}}},
        {"two frames", 10.0, 5, 2, {{0.2, EvidenceFrameRole::opener}, {5.0, EvidenceFrameRole::midpoint}}},
        {"opener at most a second, closer not before 0",
         0.5,
         0,
         12,
         {{0.01, EvidenceFrameRole::opener},
          {0.25, EvidenceFrameRole::midpoint},
          {0.0, EvidenceFrameRole::closer}}},
        {"topics fill the rest",
         120.0,
         2,
         12,
         {{1.0, EvidenceFrameRole::opener},
          {60.0, EvidenceFrameRole::midpoint},
          {119.0, EvidenceFrameRole::closer},
          {0.0, EvidenceFrameRole::topicBoundary},
          {1.5, EvidenceFrameRole::topicBoundary}}},
        {"no duration", 0.0, 3, 12, {}},
        {"no frames", 10.0, 3, 0, {}},
    };
    for (const auto& c : cases) {
        const auto samples =
            MediaEvidenceBuilder::sampleFrames(c.duration, topicsNamed(c.topics), c.maxFrames);
        ASSERT_EQ(samples.size(), c.expected.size()) << c.name;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            EXPECT_DOUBLE_EQ(samples[i].seconds, c.expected[i].first) << c.name << " " << i;
            EXPECT_EQ(samples[i].role, c.expected[i].second) << c.name << " " << i;
        }
    }

    // Thirty seconds with twenty topics: the three fixed frames and nine topics, each noted with its text.
    const auto many = MediaEvidenceBuilder::sampleFrames(30.0, topicsNamed(20), 12);
    ASSERT_EQ(many.size(), 12u);
    EXPECT_EQ(many[11].note, "topic 8");
    EXPECT_FALSE(many[0].note.has_value());
}

TEST(MediaEvidenceBuilder, topicNotesKeepTheirFirstEightyCharacters) {
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "e\u0301";  // one character, two code points
    const std::vector<EvidenceSpan> topics{{.text = text}};
    const auto samples = MediaEvidenceBuilder::sampleFrames(10.0, topics, 4);
    ASSERT_EQ(samples.size(), 4u);
    std::string expected;
    for (int i = 0; i < 80; ++i)
        expected += "e\u0301";
    EXPECT_EQ(samples[3].note, expected);
}

TEST(MediaEvidenceBuilder, gathersWordsSpansAndNotes) {
    const auto transcript = TranscriptBuilder()
                                .say("Um, hello there.", 0.3, 0.1, 0.9)
                                .say("mumbled", 0.3, 0.1, 0.54)
                                .say("clear", 0.3, 0.1, 0.55)
                                .say("unscored")
                                .build();
    const auto segments =
        Segmenter::segment(transcript, std::vector<SilenceSpan>{}, {.snapToSilence = false});
    const std::vector<SilenceSpan> silences{SilenceSpan::fromSeconds(0.0, 1.5),
                                            SilenceSpan::fromSeconds(4.0, 5.49),
                                            SilenceSpan::fromSeconds(6.0, 8.0)};
    const auto evidence = MediaEvidenceBuilder::build(silences, transcript, segments);
    EXPECT_EQ(evidence.sourceURL, "talk.mp4");
    EXPECT_EQ(evidence.locale, "en-US");
    EXPECT_DOUBLE_EQ(evidence.durationSeconds, transcript.durationSeconds);
    EXPECT_EQ(evidence.silenceSpans.size(), 3u);
    EXPECT_EQ(evidence.disfluencyWordIDs, (std::vector{0}));
    EXPECT_EQ(evidence.lowConfidenceWordIDs, (std::vector{3}));  // 0.55 and no confidence don't count
    EXPECT_EQ(evidence.phraseSpans.size(), 1u);
    EXPECT_EQ(evidence.sentenceSpans.size(), 2u);
    EXPECT_EQ(evidence.topicSpans.size(), 1u);
    EXPECT_EQ(evidence.frameSamples.size(), 4u);
    EXPECT_EQ(evidence.notes,
              (std::vector<std::string>{"1 low-confidence words — review transcript before destructive cuts.",
                                        "2 silence spans ≥1.5s detected."}));
    const auto iso = Regex::compile(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$)");
    ASSERT_TRUE(iso.has_value());
    EXPECT_TRUE(iso->firstMatch(evidence.generatedAt).has_value()) << evidence.generatedAt;

    // A recording that can't be read leaves the silences out, and their note with them.
    const auto unread =
        MediaEvidenceBuilder::build(std::filesystem::path("/no/such/talk.mp4"), transcript, segments);
    EXPECT_TRUE(unread.silenceSpans.empty());
    EXPECT_EQ(unread.notes.size(), 1u);
}

}  // namespace
}  // namespace morvane::intelligence
