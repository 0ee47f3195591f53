#include "morvane/intelligence/cleanup/cleanup_composer.hpp"

#include <gtest/gtest.h>

#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using engine::SilenceSpan;
using testing::takes;

std::vector<std::string> reasons(const ClassificationRun& run) {
    std::vector<std::string> out;
    for (const auto& verdict : run.results.at(0).segmentResults)
        out.push_back(verdict.reason.value_or("-"));
    return out;
}

TEST(CleanupComposer, dropsFillerFalseStartsRetakesAndPauses) {
    auto talk = takes({
        "Hi everyone, today I'm going to show you how to cut a video.",
        "Um.",
        "So the first thing you do is drop your recording on the window.",
        "Then you pick a, uh,",
        "Then you pick a cut.",
        "...",
        "When you like the rough cut, you accept it and export.",
        "Uh, like, um.",
    });
    // The speaker waited in silence over the whole of the last line.
    const auto& last = talk.segments.segments.back();
    const CleanupEvidence evidence{
        .silences = {SilenceSpan::fromSeconds(last.start.seconds() - 0.5, last.end.seconds() + 1.0)}};
    const auto run = CleanupComposer::classify(talk.segments, talk.transcript,
                                               "Remove mistakes, filler words, and long pauses.", evidence);
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 2, 4, 6}));
    EXPECT_EQ(reasons(run),
              (std::vector<std::string>{"cleanup_keep", "cleanup_drop:filler", "cleanup_keep",
                                        "cleanup_drop:retake", "cleanup_keep", "cleanup_drop:silence",
                                        "cleanup_keep", "cleanup_drop:silence+filler"}));
    const auto& document = run.results.at(0);
    EXPECT_EQ(document.modelNotes, "deterministic:cleanup_composer");
    EXPECT_EQ(document.keepSegmentIDs, run.mergedKeepSegmentIDs);
    EXPECT_EQ(document.chunkSegmentIDs.size(), 8u);
    EXPECT_DOUBLE_EQ(document.segmentResults[0].confidence, 0.93);
    EXPECT_DOUBLE_EQ(document.segmentResults[1].confidence, 0.9);
    EXPECT_EQ(run.instruction, "Remove mistakes, filler words, and long pauses.");
    EXPECT_FALSE(run.modelBackend.has_value());
    EXPECT_FALSE(run.usedOnDeviceFallback);
}

TEST(CleanupComposer, keepsAllOfACleanTalk) {
    const auto talk = takes({"First point.", "Second point.", "Third and last point."});
    const auto run = CleanupComposer::classify(talk.segments, talk.transcript, "Clean up", std::nullopt);
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 1, 2}));
    EXPECT_EQ(reasons(run), (std::vector<std::string>(3, "cleanup_keep")));
}

TEST(CleanupComposer, neverEmptiesACutThatHasSpeech) {
    // All filler: the filler rule keeps nothing, so the silence rule's keep list stands, while the
    // verdicts still read as drops.
    const auto talk = takes({"Um.", "Uh, um.", "..."});
    const auto run = CleanupComposer::classify(talk.segments, talk.transcript, "Clean up", std::nullopt);
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 1}));
    EXPECT_EQ(run.results[0].keepSegmentIDs, (std::vector{0, 1}));
    EXPECT_EQ(reasons(run), (std::vector<std::string>{"cleanup_drop:filler", "cleanup_drop:filler",
                                                      "cleanup_drop:silence"}));
    for (const auto& verdict : run.results[0].segmentResults)
        EXPECT_FALSE(verdict.keep);

    const auto empty =
        CleanupComposer::classify(testing::documentOf({}), TranscriptDocument{}, "x", std::nullopt);
    EXPECT_TRUE(empty.mergedKeepSegmentIDs.empty());
    ASSERT_EQ(empty.results.size(), 1u);
}

}  // namespace
}  // namespace morvane::intelligence
