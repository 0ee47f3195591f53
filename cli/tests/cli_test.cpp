// The `morvane` command as users run it: exit codes, stdout and stderr.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/json.hpp"
#include "morvane/testing/fake_model_server.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using testing::runMorvane;

Json jsonOf(const testing::ProcessResult& result) {
    return parseJson(result.out, "stdout");
}

TEST(MorvaneCli, commandsJsonListsTheWholeCatalogInOrder) {
    const auto result = runMorvane({"commands", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json list = jsonOf(result);
    ASSERT_EQ(list.size(), 18u);
    EXPECT_EQ(list[0]["id"], "cleanUp");
    EXPECT_EQ(list[2]["id"], "makeConcise");
    EXPECT_EQ(list[17]["id"], "screenCapture");
    EXPECT_EQ(list[2]["requiresLanguageModel"], true);
    EXPECT_EQ(list[2]["backend"], "languageModel");
    EXPECT_EQ(list[3]["instruction"], "Build a 60-second version with a strong hook.");
    EXPECT_EQ(list[13]["isHidden"], true);
    EXPECT_EQ(list[9]["requiresTranscript"], false);
    EXPECT_EQ(list[8]["requiresTranscript"], true);
}

TEST(MorvaneCli, resolveReportsTheCommandAndItsDecider) {
    struct Case {
        std::vector<std::string> args;
        Json command;
        Json arm;
    } cases[] = {
        {{"  Remove retakes and keep the best take.  "}, "retakesOnly", "retakeDetector"},
        {{"REMOVE RETAKES AND KEEP THE BEST TAKE."}, "retakesOnly", "retakeDetector"},
        {{"silence"}, "removeSilence", "silenceRemover"},
        {{"   "}, nullptr, "languageModelTwoPass"},
        {{"Remove retakes and keep the best take.", "--no-transcript"},
         "retakesOnly",
         "languageModelTwoPass"},
        {{"Remove silence and long pauses; keep spoken segments only.", "--no-transcript"},
         "removeSilence",
         "silenceRemover"},
        {{"Remove filler words and disfluencies.", "--no-transcript"}, "fillerOnly", "languageModelTwoPass"},
        {{"make it a 3 minute cut", "--no-transcript"}, nullptr, "durationTargetPacker"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args{"resolve"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        args.push_back("--json");
        const auto result = runMorvane(args);
        ASSERT_EQ(result.exitCode, 0) << c.args[0] << ": " << result.err;
        const Json json = jsonOf(result);
        EXPECT_EQ(json["command"], c.command) << c.args[0];
        EXPECT_EQ(json["arm"], c.arm) << c.args[0];
        EXPECT_EQ(json["instruction"], c.args[0]);
    }
}

TEST(MorvaneCli, resolveShowsRefusalsOfCommandsThatAreNotCuts) {
    const auto result = runMorvane({"resolve", "Key out a green or blue screen"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("greenScreen (Green screen)"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("Refused:     “Green screen” is not available yet."), std::string::npos)
        << result.out;
}

TEST(MorvaneCli, badTranscriptsFailWithWhereAndNoCrash) {
    const testing::TempDir dir;
    const auto wrongType = dir.write("t.json", R"({"sourceURL":"a","locale":"en","durationSeconds":"long",
        "words":[],"fullText":"","disfluencyHits":[]})");
    auto result = runMorvane({"resolve", "silence", "--transcript", wrongType.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "morvane: " + wrongType.string() + ": /durationSeconds: expected a number, found a string\n");

    const auto truncated = dir.write("cut.json", R"({"sourceURL":"a", "words": [)");
    result = runMorvane({"resolve", "silence", "--transcript", truncated.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.starts_with("morvane: " + truncated.string() + ": not valid JSON: parse error"))
        << result.err;

    result = runMorvane({"resolve", "silence", "--transcript", (dir.path() / "absent.json").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Missing file: " + (dir.path() / "absent.json").string() + "\n");
}

TEST(MorvaneCli, usageErrorsAndVersion) {
    auto result = runMorvane({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.starts_with("morvane ")) << result.out;

    result = runMorvane({"resolve"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("instruction is required"), std::string::npos) << result.err;

    result = runMorvane({"frobnicate"});
    EXPECT_EQ(result.exitCode, 2);

    result = runMorvane({"resolve", "x", "--no-transcript", "--transcript", "t.json"});
    EXPECT_EQ(result.exitCode, 2);
}

TEST(MorvaneCli, modelStatusReportsTheServerOrWhyNoneAnswers) {
    testing::FakeModelServer server({"qwen2.5:3b", "llama3.2:3b"});
    server.reportLlamaContext(8192);
    auto result = runMorvane({"model", "status", "--url", server.baseURL(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json json = jsonOf(result);
    EXPECT_EQ(json["available"], true);
    EXPECT_EQ(json["model"], "qwen2.5:3b");
    EXPECT_EQ(json["contextTokens"], 8192);
    EXPECT_EQ(json["segmentsPerPrompt"], 132);

    result = runMorvane({"model", "status", "--url", server.baseURL(), "--model", "llama3.2:3b"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("Model:    llama3.2:3b"), std::string::npos) << result.out;

    const std::string dead = [] {
        const testing::FakeModelServer gone;
        return gone.baseURL();
    }();
    result = runMorvane({"model", "status", "--url", dead});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.out.find("Status:   not available. Nothing answers at " + dead), std::string::npos) << result.out;
}

}  // namespace
}  // namespace morvane
