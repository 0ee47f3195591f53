#include "morvane/intelligence/segmentation/segmenter.hpp"

#include <gtest/gtest.h>

#include <random>

#include "morvane/engine/engine_error.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using engine::SilenceSpan;
using testing::TranscriptBuilder;

std::vector<std::string> texts(const SegmentDocument& document) {
    std::vector<std::string> out;
    for (const auto& segment : document.segments)
        out.push_back(segment.text);
    return out;
}

SegmentDocument unsnapped(const TranscriptDocument& transcript, SegmentationOptions options = {}) {
    options.snapToSilence = false;
    return Segmenter::segment(transcript, std::vector<SilenceSpan>{}, options);
}

TEST(Segmenter, anEmptyTranscriptHasNothingToSegment) {
    try {
        (void)Segmenter::segment(TranscriptDocument{}, std::vector<SilenceSpan>{});
        FAIL();
    } catch (const IntelligenceError& e) {
        EXPECT_EQ(e.kind(), IntelligenceError::Kind::emptyTranscript);
        EXPECT_STREQ(e.what(), "No speech was found to transcribe. You can still edit on the timeline.");
    }
}

TEST(Segmenter, closesSegmentsOnPausesLengthAndSentenceEnds) {
    struct Case {
        const char* name;
        TranscriptBuilder words;
        SegmentationOptions options;
        std::vector<std::string> expected;
    } cases[] = {
        {"one word", TranscriptBuilder().say("Hello"), {}, {"Hello"}},
        {"a full stop closes at the next word",
         TranscriptBuilder().say("Done. Next", 0.3, 0.1),
         {},
         {"Done.", "Next"}},
        {"without sentence boundaries",
         TranscriptBuilder().say("Done. Next", 0.3, 0.1),
         {.preferSentenceBoundaries = false},
         {"Done. Next"}},
        {"question and exclamation marks",
         TranscriptBuilder().say("Why? Because! Yes"),
         {},
         {"Why?", "Because!", "Yes"}},
        {"a comma doesn't", TranscriptBuilder().say("So, then"), {}, {"So, then"}},
        {"a gap of exactly 0.55 s closes",
         TranscriptBuilder().say("one").pause(0.55).say("two", 0.3, 0.0),
         {},
         {"one", "two"}},
        {"a gap just under doesn't",
         TranscriptBuilder().say("one").pause(0.54).say("two", 0.3, 0.0),
         {},
         {"one two"}},
        {"a bucket of the longest length closes before the next word",
         TranscriptBuilder().say("a b c d e f", 0.9, 0.1),
         {.maxSegmentDuration = 2.9},
         {"a b c", "d e f"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(texts(unsnapped(c.words.build(), c.options)), c.expected) << c.name;
    }
}

TEST(Segmenter, segmentsCarryTheirWordsTimesAndIDs) {
    const auto transcript = TranscriptBuilder().say("Hi there.").pause(1.0).say("Second one").build();
    const auto document = unsnapped(transcript);
    EXPECT_EQ(document.sourceTranscript, "talk.mp4");
    EXPECT_EQ(document.segmentCount, 2);
    ASSERT_EQ(document.segments.size(), 2u);
    const auto& second = document.segments[1];
    EXPECT_EQ(second.id, 1);
    EXPECT_EQ(second.wordStartID, 2);
    EXPECT_EQ(second.wordEndID, 3);
    // Without silences the word times stand on their own timescale.
    EXPECT_EQ(second.start, transcript.words[2].start);
    EXPECT_EQ(second.end, transcript.words[3].end);
    EXPECT_EQ(second.start.timescale, 60000);
}

TEST(Segmenter, snapsEdgesIntoSilenceWithinTheTolerance) {
    struct Case {
        const char* name;
        double start, end;
        std::vector<std::pair<double, double>> silences;
        double expectedStart, expectedEnd;
    } cases[] = {
        {"no edge near: requantised only", 10.0, 12.0, {{0.0, 1.0}}, 10.0, 12.0},
        {"start to the latest edge before it", 10.0, 12.0, {{9.6, 9.8}, {9.85, 9.9}}, 9.9, 12.0},
        {"start may move later too", 10.0, 12.0, {{10.2, 11.0}}, 10.2, 12.0},
        {"end to the earliest edge after it", 10.0, 12.0, {{12.1, 12.2}}, 10.0, 12.1},
        {"end may move earlier too", 10.0, 12.0, {{11.8, 12.5}}, 10.0, 11.8},
        {"an edge exactly at the tolerance counts", 10.0, 12.0, {{9.5, 9.75}}, 9.75, 12.0},
        {"an edge past the tolerance doesn't", 10.0, 12.0, {{9.5, 9.74}}, 10.0, 12.0},
        {"a short segment whose edges cross stays 0.01 s long",
         10.0,
         10.3,
         {{10.2, 10.25}, {10.05, 10.1}},
         10.04,
         10.05},
    };
    for (const auto& c : cases) {
        std::vector<SilenceSpan> silences;
        for (auto [s, e] : c.silences)
            silences.push_back(SilenceSpan::fromSeconds(s, e));
        const auto snapped =
            Segmenter::snapBoundaries({testing::segmentOf(0, "x", c.start, c.end)}, silences, 0.25);
        ASSERT_EQ(snapped.size(), 1u);
        EXPECT_EQ(snapped[0].start, RationalTime::fromSeconds(c.expectedStart, 600)) << c.name;
        EXPECT_EQ(snapped[0].end, RationalTime::fromSeconds(c.expectedEnd, 600)) << c.name;
        EXPECT_LE(snapped[0].start.seconds() + 0.0099, snapped[0].end.seconds()) << c.name;
    }
}

// The binary search must give exactly what comparing every boundary with every edge gives.
TEST(Segmenter, snappingMatchesAScanOfEveryBoundary) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> time(0.0, 60.0);
    std::uniform_real_distribution<double> length(0.01, 3.0);
    for (int round = 0; round < 20; ++round) {
        std::vector<SilenceSpan> silences;
        std::vector<double> boundaries;
        for (int i = 0; i < 40; ++i) {
            const double s = time(random);
            silences.push_back(SilenceSpan::fromSeconds(s, s + length(random) / 4));
            boundaries.push_back(silences.back().startSeconds);
            boundaries.push_back(silences.back().endSeconds);
        }
        std::vector<TranscriptSegment> segments;
        for (int i = 0; i < 60; ++i) {
            const double s = time(random);
            segments.push_back(testing::segmentOf(i, "x", s, s + length(random)));
        }
        const double tolerance = 0.25;
        const auto snapped = Segmenter::snapBoundaries(segments, silences, tolerance);
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const double s = segments[i].start.seconds();
            const double e = segments[i].end.seconds();
            std::optional<double> start;
            std::optional<double> end;
            for (double b : boundaries) {
                if (b <= s + tolerance && s - b <= tolerance && (!start || b > *start)) start = b;
                if (e - tolerance <= b && b - e <= tolerance && (!end || b < *end)) end = b;
            }
            const double newStart = std::min(start.value_or(s), end.value_or(e) - 0.01);
            const double newEnd = std::max(end.value_or(e), newStart + 0.01);
            EXPECT_EQ(snapped[i].start, RationalTime::fromSeconds(newStart, 600));
            EXPECT_EQ(snapped[i].end, RationalTime::fromSeconds(newEnd, 600));
        }
    }
}

TEST(Segmenter, snapsOnlyWhenAskedAndGivenSilences) {
    const auto transcript = TranscriptBuilder().pause(1.0).say("Hello there").build();
    const std::vector<SilenceSpan> silences{SilenceSpan::fromSeconds(0.0, 0.9)};
    EXPECT_EQ(Segmenter::segment(transcript, silences).segments[0].start, RationalTime(540, 600));
    EXPECT_EQ(Segmenter::segment(transcript, silences, {.snapToSilence = false}).segments[0].start,
              transcript.words[0].start);

    // Without snapping the recording isn't even opened; with it, its failures pass out.
    const auto plain =
        Segmenter::segment(transcript, std::filesystem::path("/no/such/file.mp4"), {.snapToSilence = false});
    EXPECT_EQ(plain.segments[0].start, transcript.words[0].start);
    EXPECT_THROW((void)Segmenter::segment(transcript, std::filesystem::path("/no/such/file.mp4")),
                 engine::EngineError);
}

}  // namespace
}  // namespace morvane::intelligence
