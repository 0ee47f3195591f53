#include "morvane/intelligence/cleanup/silence_remover.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using engine::SilenceSpan;
using testing::segmentOf;

std::vector<SilenceSpan> spans(std::initializer_list<std::pair<double, double>> list) {
    std::vector<SilenceSpan> out;
    for (auto [s, e] : list)
        out.push_back(SilenceSpan::fromSeconds(s, e));
    return out;
}

TEST(SilenceRemover, dropsSegmentsInsideLongPausesAndSegmentsWithoutSpeech) {
    struct Case {
        const char* name;
        const char* text;
        double start, end;
        std::vector<SilenceSpan> silences;
        bool keep;
        double confidence;
        const char* reason;
    } cases[] = {
        {"plain speech", "Hello there", 0.0, 10.0, spans({{20.0, 30.0}}), true, 0.96, "spoken_segment"},
        {"seven of ten seconds in pauses", "Hello there", 0.0, 10.0,
         spans({{-1.0, 3.0}, {6.0, 9.0}, {9.0, 12.0}}), false, 0.9, "long_silence_overlap"},
        {"6.9 of ten seconds", "Hello there", 0.0, 10.0, spans({{-1.0, 3.0}, {6.0, 8.9}}), true, 0.96,
         "spoken_segment"},
        {"short pauses don't count", "Hello there", 0.0, 10.0,
         spans({{0.0, 1.4}, {2.0, 3.4}, {4.0, 5.4}, {6.0, 7.4}, {8.0, 9.4}}), true, 0.96, "spoken_segment"},
        {"0.15 s inside a long pause has no ratio", "Hi there", 5.0, 5.15, spans({{0.0, 10.0}}), true, 0.96,
         "spoken_segment"},
        {"0.2 s is still too short to judge", "Hi there", 0.25, 0.45, spans({{0.0, 10.0}}), true, 0.96,
         "spoken_segment"},
        {"text without letters", "...", 0.0, 2.0, {}, false, 0.9, "no_speech"},
        {"one character", "a", 0.0, 2.0, {}, false, 0.9, "no_speech"},
        {"no speech inside a pause", "—", 0.0, 2.0, spans({{0.0, 3.0}}), false, 0.9, "long_silence_overlap"},
    };
    for (const auto& c : cases) {
        // A second, plainly spoken segment keeps the fallback from acting.
        const auto document = testing::documentOf(
            {segmentOf(0, c.text, c.start, c.end), segmentOf(1, "Something said", 100.0, 101.0)});
        const auto run = SilenceRemover::classify(document, "Remove silence.", c.silences);
        const auto& verdict = run.results.at(0).segmentResults.at(0);
        EXPECT_EQ(verdict.keep, c.keep) << c.name;
        EXPECT_DOUBLE_EQ(verdict.confidence, c.confidence) << c.name;
        EXPECT_EQ(verdict.reason, c.reason) << c.name;
    }
}

TEST(SilenceRemover, fallsBackToTheSpokenSegmentsRatherThanKeepNothing) {
    const auto dots = testing::documentOf({segmentOf(0, "...", 0.0, 1.0), segmentOf(1, "!?", 1.0, 2.0)});
    const auto all = SilenceRemover::classify(dots, "Remove silence.", std::vector<SilenceSpan>{});
    EXPECT_EQ(all.mergedKeepSegmentIDs, (std::vector{0, 1}));
    for (const auto& verdict : all.results[0].segmentResults) {
        EXPECT_DOUBLE_EQ(verdict.confidence, 0.8);
        EXPECT_EQ(verdict.reason, "silence_remover_fallback");
    }

    // Everything in one long pause: only the segments with text come back.
    const auto buried = testing::documentOf(
        {segmentOf(0, "Hello", 0.0, 5.0), segmentOf(1, "...", 5.0, 6.0), segmentOf(2, "World", 6.0, 9.0)});
    const auto spoken = SilenceRemover::classify(buried, "x", spans({{0.0, 10.0}}));
    EXPECT_EQ(spoken.mergedKeepSegmentIDs, (std::vector{0, 2}));
    EXPECT_EQ(spoken.results[0].segmentResults[1].reason, "silence_remover_fallback");
    EXPECT_FALSE(spoken.results[0].segmentResults[1].keep);

    const auto empty = SilenceRemover::classify(testing::documentOf({}), "x", std::nullopt);
    ASSERT_EQ(empty.results.size(), 1u);
    EXPECT_TRUE(empty.mergedKeepSegmentIDs.empty());
    EXPECT_EQ(empty.results[0].modelNotes, "deterministic:silence_remover");
}

TEST(SilenceRemover, aRecordingThatCantBeReadOnlyLeavesTheTextToDecide) {
    const auto document =
        testing::documentOf({segmentOf(0, "Hello there", 0.0, 3.0), segmentOf(1, "...", 3.0, 4.0)});
    const auto run =
        SilenceRemover::classify(document, "Cut pauses", std::filesystem::path("/no/such/file.wav"));
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0}));
    EXPECT_EQ(run.instruction, "Cut pauses");
}

// Pauses in time order are searched by time; in any other order every pause is summed. Both must agree.
TEST(SilenceRemover, theOrderOfThePausesDoesntMatter) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> time(0.0, 300.0);
    std::uniform_real_distribution<double> length(0.5, 6.0);
    std::vector<SilenceSpan> ordered;
    for (double at = 0.0; at < 300.0;) {
        const double s = at + length(random);
        const double e = s + length(random);
        ordered.push_back(SilenceSpan::fromSeconds(s, e));
        at = e;
    }
    std::vector<TranscriptSegment> segments;
    for (int i = 0; i < 200; ++i) {
        const double s = time(random);
        segments.push_back(segmentOf(i, "words here", s, s + length(random)));
    }
    const auto document = testing::documentOf(segments);
    auto shuffled = ordered;
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    const auto a = SilenceRemover::classify(document, "x", ordered);
    EXPECT_EQ(a, SilenceRemover::classify(document, "x", shuffled));
    EXPECT_GT(a.mergedKeepSegmentIDs.size(), 0u);
    EXPECT_LT(a.mergedKeepSegmentIDs.size(), 200u);
}

}  // namespace
}  // namespace morvane::intelligence
