#include "morvane/intelligence/segmentation/hierarchical_segmenter.hpp"

#include <gtest/gtest.h>

#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using testing::segmentOf;
using testing::TranscriptBuilder;

TEST(HierarchicalSegmenter, readsTopicCuesAtTheStartOrBetweenBlanks) {
    struct Case {
        const char* text;
        bool expected;
    } cases[] = {
        {"Next, the export settings", true},
        {"and next we export", true},
        {"we do that next", false},  // no blank follows the cue
        {"nextly", true},            // a text that begins with a cue counts whatever follows
        {"Moving on to pricing", true},
        {"So here's the thing", true},
        {"LET'S TALK ABOUT captions", true},
        {"in part two we cover", true},
        {"the context menu", false},
        {"", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(HierarchicalSegmenter::topicShiftCue(c.text), c.expected) << c.text;
}

TEST(HierarchicalSegmenter, phrasesCloseOnShortPausesAndLength) {
    const auto transcript = TranscriptBuilder()
                                .say("one two")
                                .pause(0.35)
                                .say("three", 0.3, 0.0)
                                .pause(0.34)
                                .say("four", 0.3, 0.0)
                                .build();
    const auto phrases = HierarchicalSegmenter::phraseSpans(transcript.words);
    ASSERT_EQ(phrases.size(), 2u);
    EXPECT_EQ(phrases[0].text, "one two");
    EXPECT_EQ(phrases[1].text, "three four");
    EXPECT_EQ(phrases[1].id, 1);
    EXPECT_EQ(phrases[1].level, EvidenceSpanLevel::phrase);
    EXPECT_EQ(phrases[1].wordStartID, 2);
    EXPECT_EQ(phrases[1].wordEndID, 3);
    EXPECT_DOUBLE_EQ(phrases[1].startSeconds, transcript.words[2].start.seconds());
    EXPECT_TRUE(phrases[1].segmentIDs.empty());

    const auto longRun = TranscriptBuilder().say("a b c d e f g h i j", 0.9, 0.05).build();
    EXPECT_EQ(HierarchicalSegmenter::phraseSpans(longRun.words).size(), 2u);  // closes once 8 s long
}

TEST(HierarchicalSegmenter, topicsCloseOnLongPausesCuesAndLength) {
    const std::vector<TranscriptSegment> segments{
        segmentOf(0, "Welcome to the show.", 0.0, 3.0, 0, 3),
        segmentOf(1, "It is about editing.", 3.2, 6.0, 4, 7),
        segmentOf(2, "After a pause.", 8.0, 9.0, 8, 10),              // exactly 2 s after the last end
        segmentOf(3, "And moving on to export.", 9.5, 12.0, 11, 15),  // a cue
        segmentOf(4, "Still export.", 12.5, 54.4, 16, 17),
        segmentOf(5, "Past 45 seconds.", 54.5, 55.0, 18, 20),
    };
    const auto topics = HierarchicalSegmenter::topicSpans(segments);
    ASSERT_EQ(topics.size(), 4u);
    EXPECT_EQ(topics[0].segmentIDs, (std::vector{0, 1}));
    EXPECT_EQ(topics[0].text, "Welcome to the show. It is about editing.");
    EXPECT_EQ(topics[0].wordEndID, 7);
    EXPECT_EQ(topics[1].segmentIDs, (std::vector{2}));
    EXPECT_EQ(topics[2].segmentIDs, (std::vector{3, 4}));
    EXPECT_EQ(topics[3].segmentIDs, (std::vector{5}));
    EXPECT_EQ(topics[3].id, 3);
    EXPECT_DOUBLE_EQ(topics[3].startSeconds, 54.5);

    const auto hierarchy = HierarchicalSegmenter::build(TranscriptDocument{}, segments);
    ASSERT_EQ(hierarchy.sentenceSpans.size(), 6u);
    EXPECT_EQ(hierarchy.sentenceSpans[2].segmentIDs, (std::vector{2}));
    EXPECT_EQ(hierarchy.sentenceSpans[2].text, "After a pause.");
    EXPECT_EQ(hierarchy.sentenceSpans[2].level, EvidenceSpanLevel::sentence);
    EXPECT_TRUE(hierarchy.phraseSpans.empty());
    EXPECT_EQ(hierarchy.topicSpans, topics);
}

}  // namespace
}  // namespace morvane::intelligence
