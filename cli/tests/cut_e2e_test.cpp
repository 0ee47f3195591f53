// `morvane cut` runs the assistant's whole request on a recording and its transcript.

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

std::filesystem::path toneRecording(const testing::TempDir& dir) {
    const auto file = dir.path() / "talk.wav";
    const auto result =
        testing::runProcess({"/usr/bin/ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                             "sine=frequency=220:duration=41", "-ac", "1", file.string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return file;
}

TEST(MorvaneCutMedia, acceptingCleanUpWritesAPlanOfTheRulesKeepList) {
    const testing::TempDir dir;
    const auto media = toneRecording(dir);
    const auto transcript = (testing::sourceDir() / "samples" / "script.transcript.json").string();
    const auto planPath = dir.path() / "cut.json";

    const auto classify =
        runMorvane({"classify", transcript, "--media", media.string(), "--command", "cleanUp", "--json"});
    ASSERT_EQ(classify.exitCode, 0) << classify.err;
    const auto expected =
        parseJson(classify.out, "classify")["run"]["mergedKeepSegmentIDs"].get<std::vector<int>>();
    ASSERT_FALSE(expected.empty());

    const auto cut = runMorvane({"cut", media.string(), "--transcript", transcript, "--command", "cleanUp",
                                 "--accept", "--plan-out", planPath.string(), "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    const Json report = parseJson(cut.out, "cut");
    EXPECT_TRUE(report["keepSegmentIDs"].is_null());  // accepted: the classification is done with
    EXPECT_EQ(report["reviewing"], false);
    EXPECT_EQ(report["status"],
              "Cut accepted — Storyline updated. Restore checkpoint to return to the Rough Cut.");

    const auto plan = engine::EditPlanCoding::decode(readWholeFile(planPath), "cut.json");
    std::vector<int> planned;
    for (const auto& op : plan.operations) {
        ASSERT_TRUE(op.origin.has_value());
        for (auto id : *op.origin->segmentIDs) {
            if (std::find(planned.begin(), planned.end(), id) == planned.end())
                planned.push_back(static_cast<int>(id));
        }
    }
    EXPECT_EQ(planned, expected);
    EXPECT_GT(plan.operations.size(), 1u);  // the cut plays several ranges of one stitched clip
}

TEST(MorvaneCutMedia, rejectingLeavesTheWholeRecordingAndModelRequestsNeedAServer) {
    const testing::TempDir dir;
    const auto media = toneRecording(dir);
    const auto transcript = (testing::sourceDir() / "samples" / "script.transcript.json").string();
    const auto planPath = dir.path() / "whole.json";
    auto result = runMorvane({"cut", media.string(), "--transcript", transcript, "--command", "retakesOnly",
                              "--reject", "--plan-out", planPath.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Status: Rough cut discarded. Storyline restored."), std::string::npos)
        << result.out;
    const auto plan = engine::EditPlanCoding::decode(readWholeFile(planPath), "whole.json");
    ASSERT_EQ(plan.operations.size(), 1u);
    EXPECT_EQ(engine::RationalTime::parse(plan.operations[0].start).value, 0);
    EXPECT_DOUBLE_EQ(engine::RationalTime::parse(plan.operations[0].end).seconds(), 40.61);

    result = runMorvane({"cut", media.string(), "--transcript", transcript, "--command", "mainStory",
                         "--model-url", "http://127.0.0.1:9/v1"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("AI rough cuts need a language model server on this computer"),
              std::string::npos)
        << result.err;
}

}  // namespace
}  // namespace morvane
