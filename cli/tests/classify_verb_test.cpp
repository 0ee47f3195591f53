// `morvane segment` and `morvane classify` on the bundled sample talk: a short tutorial with fillers, a
// fluffed line said again and a repeated line.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/testing/fake_model_server.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using testing::runMorvane;

std::string sampleTranscript() {
    return (testing::sourceDir() / "samples" / "script.transcript.json").string();
}

Json jsonOf(const testing::ProcessResult& result) {
    return parseJson(result.out, "stdout");
}

std::vector<int> keptIDs(const Json& json) {
    std::vector<int> ids;
    for (const auto& row : json["segments"]) {
        if (row["keep"].get<bool>()) ids.push_back(row["id"].get<int>());
    }
    return ids;
}

// A recording for the sample transcript: a tone under every word, silence between them.
std::filesystem::path sampleRecording(const testing::TempDir& dir) {
    const Json transcript = parseJson(readWholeFile(sampleTranscript()), "script.transcript.json");
    constexpr int rate = 48000;
    std::vector<float> samples(static_cast<std::size_t>(transcript["durationSeconds"].get<double>() * rate),
                               0.0f);
    const auto tone = testing::tone(220, 0.3, 60.0, rate);
    const auto seconds = [](const Json& time) {
        return time["value"].get<double>() / time["timescale"].get<double>();
    };
    for (const auto& word : transcript["words"]) {
        const auto from = static_cast<std::size_t>(seconds(word["start"]) * rate);
        const auto to = std::min(static_cast<std::size_t>(seconds(word["end"]) * rate), samples.size());
        for (std::size_t i = from; i < to; ++i)
            samples[i] = tone[i];
    }
    return testing::writeWav(dir.path() / "talk.wav", samples, 1, rate);
}

TEST(MorvaneClassify, cleanUpKeepsTheBetterTakesOfTheSampleTalk) {
    const auto result = runMorvane({"classify", sampleTranscript(), "--command", "cleanUp", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json json = jsonOf(result);
    EXPECT_EQ(json["arm"], "cleanupComposer");
    EXPECT_EQ(json["instruction"], "Remove mistakes, filler words, and long pauses.");
    // "Like, clean up removes..." loses to its clean retake; "Then you pick a cut." is said twice alike,
    // and the first take stays.
    EXPECT_EQ(keptIDs(json), (std::vector{0, 1, 2, 3, 6, 7}));
    EXPECT_EQ(json["segments"][4]["reason"], "cleanup_drop:retake");
    EXPECT_EQ(json["segments"][5]["reason"], "cleanup_drop:retake");
    EXPECT_EQ(json["summary"]["kept"], 6);
    EXPECT_EQ(json["summary"]["dropped"], 2);
    EXPECT_NEAR(json["summary"]["savedSeconds"].get<double>(), 6.21, 0.01);
    EXPECT_EQ(json["run"]["mergedKeepSegmentIDs"], Json({0, 1, 2, 3, 6, 7}));

    const auto text = runMorvane({"classify", sampleTranscript(), "--command", "cleanUp"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("   4  drop  0.90"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("[cleanup_drop:retake]"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Kept 6 of 8 segments (28.09 s); dropped 2, saving 6.21 s."), std::string::npos)
        << text.out;
}

TEST(MorvaneClassify, eachRuleAnswersItsOwnRequest) {
    struct Case {
        std::vector<std::string> request;
        const char* arm;
        std::vector<int> kept;
    } cases[] = {
        {{"--command", "fillerOnly"}, "disfluencyDetector", {0, 1, 2, 3, 4, 5, 6, 7}},
        {{"--command", "retakesOnly"}, "retakeDetector", {0, 1, 2, 3, 6, 7}},
        {{"--instruction", "Select segments that are mostly filler"}, "disfluencyDetector", {}},
        {{"--instruction", "cut pauses"}, "silenceRemover", {0, 1, 2, 3, 4, 5, 6, 7}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args{"classify", sampleTranscript(), "--json"};
        args.insert(args.end(), c.request.begin(), c.request.end());
        const auto result = runMorvane(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const Json json = jsonOf(result);
        EXPECT_EQ(json["arm"], c.arm) << c.request[1];
        EXPECT_EQ(keptIDs(json), c.kept) << c.request[1];
    }
}

TEST(MorvaneClassify, typedInstructionsAskTheLanguageModel) {
    // No server: the user is told what to start, and the run fails.
    const auto refused =
        runMorvane({"classify", sampleTranscript(), "--instruction", "Keep the parts about licensing",
                    "--model-url", "http://127.0.0.1:9/v1"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("No language model is available. Start a local model server"),
              std::string::npos)
        << refused.err;

    testing::FakeModelServer server;
    server.onChat(
        [](const nlohmann::json&) { return testing::FakeModelServer::reply("{\"keepSegmentIDs\":[3]}"); });
    const auto answered =
        runMorvane({"classify", sampleTranscript(), "--instruction", "Keep the parts about cutting",
                    "--model-url", server.baseURL(), "--json"});
    ASSERT_EQ(answered.exitCode, 0) << answered.err;
    const Json json = jsonOf(answered);
    EXPECT_EQ(json["arm"], "languageModelTwoPass");
    EXPECT_EQ(keptIDs(json), (std::vector{3}));
    EXPECT_EQ(json["run"]["modelBackend"], "onDevice");
}

TEST(MorvaneClassify, refusesWhatIsNoCutAndAsksForARequest) {
    const auto screen = runMorvane({"classify", sampleTranscript(), "--command", "greenScreen"});
    EXPECT_EQ(screen.exitCode, 1);
    EXPECT_NE(screen.err.find("“Green screen” is not available yet."), std::string::npos) << screen.err;
    EXPECT_EQ(runMorvane({"classify", sampleTranscript()}).exitCode, 2);
    EXPECT_EQ(runMorvane({"classify", sampleTranscript(), "--command", "tidy"}).exitCode, 2);
    EXPECT_EQ(
        runMorvane({"classify", sampleTranscript(), "--command", "cleanUp", "--instruction", "x"}).exitCode,
        2);
}

TEST(MorvaneSegment, cutsTheSampleIntoSegmentsAndTopics) {
    const auto result = runMorvane({"segment", sampleTranscript(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json json = jsonOf(result);
    EXPECT_EQ(json["segments"]["segmentCount"], 8);
    EXPECT_EQ(json["segments"]["segments"][3]["text"], "Then you pick a cut.");
    EXPECT_EQ(json["hierarchy"]["sentenceSpans"].size(), 8u);
    EXPECT_EQ(json["hierarchy"]["topicSpans"].size(), 2u);
    EXPECT_EQ(json["hierarchy"]["topicSpans"][1]["segmentIDs"], Json({3, 4, 5, 6, 7}));

    const auto text = runMorvane({"segment", sampleTranscript()});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("8 segments from 82 words"), std::string::npos) << text.out;

    const auto missing = runMorvane({"segment", "/no/such/transcript.json"});
    EXPECT_EQ(missing.exitCode, 1);
}

TEST(MorvaneSegment, withTheRecordingEdgesFallIntoItsPauses) {
    const testing::TempDir dir;
    const auto recording = sampleRecording(dir).string();
    const auto segmented = runMorvane({"segment", sampleTranscript(), "--media", recording, "--json"});
    ASSERT_EQ(segmented.exitCode, 0) << segmented.err;
    const Json json = jsonOf(segmented);
    for (const auto& segment : json["segments"]["segments"]) {
        EXPECT_EQ(segment["start"]["timescale"], 600);
    }
    // The words are all there to hear: the cut is the one the transcript alone gives.
    const auto cleaned =
        runMorvane({"classify", sampleTranscript(), "--media", recording, "--command", "cleanUp", "--json"});
    ASSERT_EQ(cleaned.exitCode, 0) << cleaned.err;
    EXPECT_EQ(keptIDs(jsonOf(cleaned)), (std::vector{0, 1, 2, 3, 6, 7}));
}

}  // namespace
}  // namespace morvane
