// `morvane shorts` lists the passages of a talk that stand alone as shorts; `morvane cut --command
// shortCut60s --target-seconds` packs the talk to a length.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/time/rational_time.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;

using testing::runMorvane;

std::string sampleTranscript() {
    return (testing::sourceDir() / "samples" / "script.transcript.json").string();
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

TEST(MorvaneShortsMedia, exportsTheChosenPassageAloneOnTheVerticalCanvas) {
    const testing::TempDir dir;
    const std::string sample = (testing::sourceDir() / "samples" / "talk.mp4").string();
    const auto listed = runMorvane({"shorts", sample, "--transcript", sampleTranscript(), "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const Json candidates = parseJson(listed.out, "stdout")["candidates"];
    ASSERT_GE(candidates.size(), 2u);

    const auto movie = dir.path() / "short.mp4";
    const auto exported = runMorvane(
        {"shorts", sample, "--transcript", sampleTranscript(), "--export", "2", "-o", movie.string()});
    ASSERT_EQ(exported.exitCode, 0) << exported.err;
    EXPECT_NE(exported.out.find(candidates[1]["title"].get<std::string>()), std::string::npos)
        << exported.out;
    const auto probe = testing::runProcess({"/usr/bin/ffprobe", "-v", "error", "-show_entries",
                                            "stream=codec_type,width,height:format=duration", "-of", "json",
                                            movie.string()});
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    const Json report = parseJson(probe.out, "ffprobe");
    bool sound = false;
    for (const auto& stream : report["streams"]) {
        if (stream["codec_type"] == "video") {
            EXPECT_EQ(stream["width"], 1080);
            EXPECT_EQ(stream["height"], 1920);
        }
        sound = sound || stream["codec_type"] == "audio";
    }
    EXPECT_TRUE(sound);
    // The passage, not the talk: as long as the second candidate, within a frame or two.
    EXPECT_NEAR(std::stod(report["format"]["duration"].get<std::string>()),
                candidates[1]["durationSeconds"].get<double>(), 0.1);

    const auto beyond = runMorvane(
        {"shorts", sample, "--transcript", sampleTranscript(), "--export", "9", "-o", movie.string()});
    EXPECT_EQ(beyond.exitCode, 2);
    EXPECT_NE(beyond.err.find("only"), std::string::npos) << beyond.err;
    EXPECT_EQ(runMorvane({"shorts", sample, "--transcript", sampleTranscript(), "--export", "1"}).exitCode,
              2);
    EXPECT_EQ(
        runMorvane({"shorts", "--transcript", sampleTranscript(), "--export", "1", "-o", movie.string()})
            .exitCode,
        2);
    const auto over =
        runMorvane({"shorts", sample, "--transcript", sampleTranscript(), "--export", "1", "-o", sample});
    EXPECT_EQ(over.exitCode, 2);
    EXPECT_TRUE(fs::exists(sample));
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
