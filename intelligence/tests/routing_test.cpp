#include "morvane/intelligence/routing/model_router.hpp"

#include <gtest/gtest.h>

#include "morvane/intelligence/instruction/deterministic_instruction_rules.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/routing/model_context_limits.hpp"

namespace morvane::intelligence {
namespace {

using ID = AssistantCommandID;

SegmentDocument segmentsWithTexts(std::initializer_list<const char*> texts) {
    SegmentDocument document{.sourceTranscript = "talk.mp4"};
    int id = 0;
    for (const char* text : texts) {
        document.segments.push_back({id, text, {id * 600, 600}, {(id + 1) * 600, 600}, id, id});
        ++id;
    }
    document.segmentCount = id;
    return document;
}

TEST(ModelRouter, commandsGoToTheirOwnRuleWithTheCanonicalInstruction) {
    const TranscriptDocument transcript;
    struct Case {
        ID command;
        RouteArm withTranscript;
        RouteArm withoutTranscript;
    } cases[] = {
        {ID::cleanUp, RouteArm::cleanupComposer, RouteArm::languageModelTwoPass},
        {ID::removeSilence, RouteArm::silenceRemover, RouteArm::silenceRemover},
        {ID::fillerOnly, RouteArm::disfluencyDetector, RouteArm::languageModelTwoPass},
        {ID::retakesOnly, RouteArm::retakeDetector, RouteArm::languageModelTwoPass},
        {ID::shortCut60s, RouteArm::durationTargetPacker, RouteArm::durationTargetPacker},
        {ID::makeConcise, RouteArm::languageModelTwoPass, RouteArm::languageModelTwoPass},
        {ID::mainStory, RouteArm::languageModelTwoPass, RouteArm::languageModelTwoPass},
    };
    for (const auto& c : cases) {
        const auto* command = AssistantCommandCatalog::command(c.command);
        const auto with =
            ModelRouter::route({}, "ignored text", {.transcript = &transcript, .commandID = c.command});
        EXPECT_EQ(with.arm, c.withTranscript) << kAssistantCommandIDNames.text(c.command);
        EXPECT_EQ(with.command, command);
        if (isRule(with.arm)) {
            EXPECT_EQ(with.instruction, command->instruction);
        }

        // Without a transcript the command's own text is routed as typed text.
        const auto without = ModelRouter::route({}, command->instruction, {.commandID = c.command});
        EXPECT_EQ(without.arm, c.withoutTranscript) << kAssistantCommandIDNames.text(c.command);
    }
    const auto silence = ModelRouter::route({}, "x", {.commandID = ID::removeSilence});
    EXPECT_EQ(silence.minPauseSeconds, 1.5);
}

TEST(ModelRouter, commandsThatAreNotCutsAreRefusedByTitle) {
    for (ID id : {ID::generateCaptions, ID::chapterTitles, ID::autoReframe, ID::personBackground,
                  ID::reduceNoise, ID::voiceEnhancer, ID::voiceChanger, ID::voiceover, ID::greenScreen,
                  ID::objectMask, ID::screenCapture}) {
        try {
            (void)ModelRouter::route({}, "anything", {.commandID = id});
            ADD_FAILURE() << kAssistantCommandIDNames.text(id);
        } catch (const IntelligenceError& e) {
            EXPECT_EQ(e.kind(), IntelligenceError::Kind::unsupportedInstruction);
            EXPECT_EQ(e.payload(), AssistantCommandCatalog::command(id)->title);
        }
    }
    try {
        (void)ModelRouter::route({}, "Key out a green or blue screen.");
        ADD_FAILURE();
    } catch (const IntelligenceError& e) {
        EXPECT_STREQ(e.what(), "“Green screen” is not available yet.");
    }
}

TEST(ModelRouter, typedTextTriesTheRulesInOrderAndFallsThroughWithoutATranscript) {
    const TranscriptDocument transcript;
    struct Case {
        const char* text;
        RouteArm withTranscript;
        RouteArm withoutTranscript;
    } cases[] = {
        {"no speech please, and remove silence", RouteArm::noSpeechFilter, RouteArm::noSpeechFilter},
        {"clean up and cut pauses", RouteArm::cleanupComposer, RouteArm::silenceRemover},
        {"clean up the pauses", RouteArm::cleanupComposer, RouteArm::languageModelTwoPass},
        {"please clean up", RouteArm::cleanupComposer, RouteArm::languageModelTwoPass},
        {"cut pauses", RouteArm::silenceRemover, RouteArm::silenceRemover},
        {"make a 45 second teaser", RouteArm::durationTargetPacker, RouteArm::durationTargetPacker},
        {"strip silence from a two minute cut", RouteArm::silenceRemover, RouteArm::silenceRemover},
        {"take out filler", RouteArm::disfluencyDetector, RouteArm::languageModelTwoPass},
        {"which takes are duplicates? dedupe them", RouteArm::retakeDetector, RouteArm::languageModelTwoPass},
        {"filler retake", RouteArm::retakeDetector, RouteArm::languageModelTwoPass},
        {"Keep only the parts about licensing", RouteArm::languageModelTwoPass,
         RouteArm::languageModelTwoPass},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ModelRouter::route({}, c.text, {.transcript = &transcript}).arm, c.withTranscript)
            << c.text;
        const auto without = ModelRouter::route({}, c.text);
        EXPECT_EQ(without.arm, c.withoutTranscript) << c.text;
        EXPECT_EQ(without.instruction, c.text);
    }
}

TEST(ModelRouter, modelArmFollowsTheOptionsMode) {
    const auto chunk = ModelRouter::route(
        {}, "Keep the funny bits", {.options = InstructionParserOptions{.mode = ClassificationMode::chunk}});
    EXPECT_EQ(chunk.arm, RouteArm::languageModel);
    EXPECT_EQ(chunk.mode, ClassificationMode::chunk);
    const auto twoPass =
        ModelRouter::route({}, "Keep the funny bits", {.options = InstructionParserOptions{}});
    EXPECT_EQ(twoPass.arm, RouteArm::languageModelTwoPass);
    EXPECT_FALSE(twoPass.mode.has_value());
}

TEST(DeterministicInstructionRules, keepsSegmentsWithRealTextWhenAskedForTheCutWithoutSpeech) {
    const auto segments = segmentsWithTexts({"...", "ok", "ok.", "  Hi!  ", "—!?", "١٢٣", "e\u0301e\u0301"});
    EXPECT_FALSE(DeterministicInstructionRules::classify(segments, "Remove silence.").has_value());
    const auto run = DeterministicInstructionRules::classify(segments, "Keep the SILENT SEGMENTS");
    ASSERT_TRUE(run.has_value());
    EXPECT_EQ(run->mergedKeepSegmentIDs, (std::vector{2, 3, 5}));
    ASSERT_EQ(run->results.size(), 1u);
    const auto& document = run->results[0];
    EXPECT_EQ(document.chunkSegmentIDs, (std::vector{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(document.keepSegmentIDs, run->mergedKeepSegmentIDs);
    EXPECT_EQ(document.modelNotes, "deterministic:transcription_filter");
    EXPECT_FALSE(document.estimatedPromptTokens.has_value());
    ASSERT_EQ(document.segmentResults.size(), 7u);
    for (const auto& verdict : document.segmentResults) {
        EXPECT_EQ(verdict.confidence, 0.98);
        EXPECT_EQ(verdict.reason, "deterministic:no_transcription");
    }
    EXPECT_FALSE(run->modelBackend.has_value());
    EXPECT_EQ(run->instruction, "Keep the SILENT SEGMENTS");

    // The filter runs before any other matcher and carries its answer in the route.
    const auto route = ModelRouter::route(segments, "cut pauses, no dialogue");
    EXPECT_EQ(route.arm, RouteArm::noSpeechFilter);
    ASSERT_TRUE(route.run.has_value());
    EXPECT_EQ(route.run->mergedKeepSegmentIDs, (std::vector{2, 3, 5}));
}

TEST(InstructionScopeClassifier, readsWholeVideoRequestsAsGlobal) {
    struct Case {
        const char* text;
        InstructionScope expected;
    } cases[] = {
        {"Cut the tangents", InstructionScope::global},
        {"make it a 90s short", InstructionScope::global},
        {"remove retakes", InstructionScope::global},
        {"Pack to a target length", InstructionScope::global},
        {"keep the MAIN STORY", InstructionScope::global},
        {"remove the ums", InstructionScope::local},
        {"keep the bit about cats", InstructionScope::local},
    };
    for (const auto& c : cases)
        EXPECT_EQ(InstructionScopeClassifier::scope(c.text), c.expected) << c.text;
}

TEST(InstructionParserOptions, chunkSizeFollowsTheModelsContextWindow) {
    const InstructionParserOptions defaults;
    EXPECT_EQ(defaults.chunkSize, 12);
    EXPECT_EQ(defaults.mode, ClassificationMode::twoPass);
    EXPECT_TRUE(defaults.allowRemoteModel);
    EXPECT_FALSE(defaults.backend.has_value());

    const auto remote = InstructionParserOptions::adaptive(
        InstructionScope::local, ClassificationModelBackend::remoteModel, false, 4096);
    EXPECT_EQ(remote.chunkSize, 579);
    EXPECT_FALSE(remote.allowRemoteModel);
    EXPECT_EQ(
        InstructionParserOptions::adaptive(InstructionScope::global, std::nullopt, true, 4096).chunkSize, 58);
    EXPECT_EQ(InstructionParserOptions::adaptive(InstructionScope::global,
                                                 ClassificationModelBackend::onDevice, true, 8192)
                  .chunkSize,
              132);

    struct Case {
        int tokens;
        int chunk;
    } cases[] = {{1000, 14}, {1699, 14},  {1700, 14},   {1755, 15},
                 {4096, 58}, {8192, 132}, {32768, 579}, {0, 14}};
    for (const auto& c : cases)
        EXPECT_EQ(ModelContextLimits::recommendedChunkSize(c.tokens), c.chunk) << c.tokens;
}

}  // namespace
}  // namespace morvane::intelligence
