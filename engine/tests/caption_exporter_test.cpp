// Caption sidecars read from a plan's text clips, in SubRip and WebVTT.

#include "morvane/engine/export/caption_exporter.hpp"

#include <gtest/gtest.h>

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

EditPlanOperation textClip(std::string start, std::string end, std::optional<std::string> content,
                           std::optional<std::string> label = std::nullopt) {
    EditPlanOperation op{.type = "text", .sourceID = "text", .start = start, .end = std::move(end)};
    op.timelineStart = std::move(start);
    op.trackID = "text";
    op.label = std::move(label);
    if (content) op.text = EditPlanTextPayload{.content = *content};
    return op;
}

EditPlan planWith(std::vector<EditPlanOperation> operations) {
    EditPlan plan;
    plan.timeline.frameDuration = "1/30";
    plan.sources = {{.id = "src1", .url = "/media/talk.mp4", .frameDuration = "1/30"}};
    plan.operations = {{.type = "keep", .sourceID = "src1", .start = "0/600", .end = "6000/600"}};
    plan.operations.insert(plan.operations.end(), operations.begin(), operations.end());
    return plan;
}

TEST(CaptionExporter, cuesComeFromTextClipsInProgramOrder) {
    const EditPlan plan = planWith({
        textClip("1800/600", "2400/600", "  Third\n"), textClip("600/600", "1200/600", "First"),
        textClip("1200/600", "1500/600", std::nullopt, "Second, from its label "),
        textClip("1500/600", "1800/600", " \n "),        // nothing left once trimmed: no cue
        textClip("2400/600", "2700/600", std::nullopt),  // neither text nor label
    });
    const auto cues = CaptionExporter::cues(plan);
    ASSERT_EQ(cues.size(), 3u);
    EXPECT_EQ(cues[0], (CaptionCue{RationalTime{600, 600}, RationalTime{1200, 600}, "First"}));
    EXPECT_EQ(cues[1].text, "Second, from its label ");  // a label is taken as it is
    EXPECT_EQ(cues[2], (CaptionCue{RationalTime{1800, 600}, RationalTime{2400, 600}, "Third"}));
}

TEST(CaptionExporter, subRipAndWebVTTWriteEveryCueWithExactTimes) {
    const EditPlan plan = planWith({
        textClip("750/600", "1800/600", "Hi everyone,"),
        textClip("2233834/600", "2234134/600", "two\r\nlines  \n\n  here"),
    });
    EXPECT_EQ(CaptionExporter::srt(plan),
              "1\n00:00:01,250 --> 00:00:03,000\nHi everyone,\n"
              "\n"
              "2\n01:02:03,057 --> 01:02:03,557\ntwo\nlines\nhere\n");
    EXPECT_EQ(CaptionExporter::vtt(plan),
              "WEBVTT\n\n"
              "00:00:01.250 --> 00:00:03.000\nHi everyone,\n"
              "\n"
              "01:02:03.057 --> 01:02:03.557\ntwo\nlines\nhere\n");
}

TEST(CaptionExporter, cueTextCannotFakeATimingLine) {
    const struct {
        const char* in;
        const char* out;
    } cases[] = {
        {"a --> b", "a → b"},       {"  one \r\n\r\n two  ", "one\ntwo"},
        {"x\ry\u2028z", "x\ny\nz"}, {" \n \t\n", ""},
        {"-->-->", "→→"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CaptionExporter::sanitizeCueText(c.in), c.out) << c.in;
}

TEST(CaptionExporter, aLabelOfBlankLinesIsWrittenAsAnEmptyLine) {
    const EditPlan plan = planWith({textClip("0/600", "600/600", std::nullopt, "\n \n")});
    EXPECT_EQ(CaptionExporter::srt(plan), "1\n00:00:00,000 --> 00:00:01,000\n\n");
}

TEST(CaptionExporter, aPlanWithoutTextHasNoSidecar) {
    const EditPlan plan = planWith({textClip("0/600", "600/600", "   ")});
    for (const auto& write : {CaptionExporter::srt, CaptionExporter::vtt}) {
        try {
            (void)write(plan);
            FAIL() << "a sidecar was written without captions";
        } catch (const EngineError& e) {
            EXPECT_EQ(e.kind(), EngineError::Kind::decodeFailed);
            EXPECT_STREQ(e.what(), "Decode failed: Edit plan has no caption clips");
        }
    }
}

TEST(CaptionExporter, timestampsRoundToTheNearestMillisecond) {
    const struct {
        RationalTime time;
        const char* srt;
    } cases[] = {
        {RationalTime{1, 1600}, "00:00:00,001"},
        {RationalTime{2999, 3000000}, "00:00:00,001"},
        {RationalTime{359999999, 100000}, "01:00:00,000"},
        {RationalTime{-600, 600}, "00:00:00,000"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CaptionExporter::timestamp(c.time, ','), c.srt) << c.time.formatted();
}

}  // namespace
}  // namespace morvane::engine
