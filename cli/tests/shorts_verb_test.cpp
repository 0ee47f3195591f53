// `morvane shorts` lists the passages of a talk that stand alone as shorts; `morvane cut --command
// shortCut60s --target-seconds` packs the talk to a length.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/time/rational_time.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using testing::runMorvane;

std::string sampleTranscript() {
    return (testing::sourceDir() / "samples" / "talk.transcript.json").string();
}

TEST(MorvaneShorts, listsTheSampleTalksPassagesBestFirst) {
    const auto result = runMorvane({"shorts", "--transcript", sampleTranscript(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json candidates = parseJson(result.out, "stdout")["candidates"];
    ASSERT_FALSE(candidates.empty());
    EXPECT_LE(candidates.size(), 5u);
    double previous = 2.0;
    for (const auto& candidate : candidates) {
        const double duration = candidate["durationSeconds"].get<double>();
        EXPECT_GE(duration, 15.0);
        EXPECT_LE(duration, 58.0);
        EXPECT_NEAR(candidate["endSeconds"].get<double>() - candidate["startSeconds"].get<double>(), duration,
                    1e-9);
        EXPECT_LE(candidate["score"].get<double>(), previous + 0.01);
        previous = candidate["score"].get<double>();
        EXPECT_FALSE(candidate["title"].get<std::string>().empty());
        EXPECT_FALSE(candidate["segmentIDs"].empty());
    }
    // The talk opens with "how to cut a video by its words": a hook.
    EXPECT_EQ(candidates[0]["segmentIDs"][0], 0);
    EXPECT_EQ(candidates[0]["hookSummary"], "Strong hook phrasing");

    const auto one = runMorvane({"shorts", "--transcript", sampleTranscript(), "--count", "1"});
    ASSERT_EQ(one.exitCode, 0) << one.err;
    EXPECT_NE(one.out.find("   1  "), std::string::npos) << one.out;
    EXPECT_EQ(one.out.find("   2  "), std::string::npos) << one.out;
    EXPECT_NE(one.out.find(candidates[0]["title"].get<std::string>()), std::string::npos) << one.out;
}

TEST(MorvaneShorts, refusesBadRequests) {
    EXPECT_EQ(runMorvane({"shorts"}).exitCode, 2);
    EXPECT_EQ(runMorvane({"shorts", "--transcript", sampleTranscript(), "--count", "0"}).exitCode, 2);
    const auto missing = runMorvane({"shorts", "--transcript", "/nonexistent/talk.json"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("/nonexistent/talk.json"), std::string::npos) << missing.err;
}

TEST(MorvaneCutMedia, theShortCutPacksToTheTargetGiven) {
    const testing::TempDir dir;
    const auto media = dir.path() / "talk.wav";
    ASSERT_EQ(testing::runProcess({"/usr/bin/ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                                   "sine=frequency=220:duration=41", "-ac", "1", media.string()})
                  .exitCode,
              0);
    const auto planPath = dir.path() / "short.json";
    const auto cut =
        runMorvane({"cut", media.string(), "--transcript", sampleTranscript(), "--command", "shortCut60s",
                    "--target-seconds", "20", "--accept", "--plan-out", planPath.string(), "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    const Json report = parseJson(cut.out, "cut");
    EXPECT_EQ(report["chat"][0]["text"], "Short cut · target 20s");
    EXPECT_TRUE(report["chat"][1]["text"].get<std::string>().starts_with("Cut accepted")) << report["chat"];
    EXPECT_TRUE(report["chat"][2]["text"].get<std::string>().starts_with("Short cut · target 20s · kept "))
        << report["chat"];

    const auto plan = engine::EditPlanCoding::decode(readWholeFile(planPath), "short.json");
    double kept = 0.0;
    for (const auto& op : plan.operations) {
        kept +=
            engine::RationalTime::parse(op.end).seconds() - engine::RationalTime::parse(op.start).seconds();
    }
    EXPECT_GT(kept, 10.0);
    EXPECT_LE(kept, 20.0);

    EXPECT_EQ(runMorvane({"cut", media.string(), "--transcript", sampleTranscript(), "--command", "cleanUp",
                          "--target-seconds", "20"})
                  .exitCode,
              2);
}

}  // namespace
}  // namespace morvane
