#include <gtest/gtest.h>

#include "long_talk.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/routing/model_router.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using ID = AssistantCommandID;
using engine::SilenceSpan;

// A model that keeps the even segments and reports one partial result on the way.
class EvenParser final : public InstructionParser {
  public:
    ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                               const InstructionParserOptions& options, const PartialRunCallback& onPartial,
                               std::stop_token) override {
        modes.push_back(options.mode);
        ClassificationRun run{.instruction = std::string(instruction),
                              .modelBackend = ClassificationModelBackend::onDevice};
        ClassificationDocument document{.instruction = run.instruction, .modelNotes = "model"};
        for (const auto& segment : segments.segments) {
            document.chunkSegmentIDs.push_back(segment.id);
            if (segment.id % 2 == 0) document.keepSegmentIDs.push_back(segment.id);
        }
        run.mergedKeepSegmentIDs = document.keepSegmentIDs;
        run.results.push_back(ClassificationDocument::make(std::move(document)));
        if (onPartial) onPartial(run);
        return run;
    }
    std::vector<ClassificationMode> modes;
};

const testing::Takes& talk() {
    static const auto takes =
        testing::takes({"Hello and welcome.", "Um.", "Then you pick a cut.", "Then you pick a cut.", "Bye."});
    return takes;
}

TEST(ModelRouterClassify, runsTheRuleOfEachRouteWithItsCanonicalInstruction) {
    const auto& [transcript, segments] = talk();
    struct Case {
        std::optional<ID> command;
        const char* instruction;
        const char* notes;
        std::vector<int> kept;
    } cases[] = {
        {ID::cleanUp, "", "deterministic:cleanup_composer", {0, 2, 4}},
        {ID::removeSilence, "", "deterministic:silence_remover", {0, 1, 2, 3, 4}},
        {ID::fillerOnly, "", "deterministic:disfluency_detector", {0, 2, 3, 4}},
        {ID::retakesOnly, "", "deterministic:retake_detector", {0, 1, 2, 4}},
        {std::nullopt,
         "only the segments without speech",
         "deterministic:transcription_filter",
         {0, 1, 2, 3, 4}},
        {std::nullopt, "take out filler", "deterministic:disfluency_detector", {0, 2, 3, 4}},
    };
    for (const auto& c : cases) {
        int partials = 0;
        const auto run = ModelRouter::classify(segments, c.instruction,
                                               {.transcript = &transcript,
                                                .commandID = c.command,
                                                .onPartial = [&](const ClassificationRun&) { ++partials; }});
        EXPECT_EQ(run.results.at(0).modelNotes, c.notes) << c.notes;
        EXPECT_EQ(run.mergedKeepSegmentIDs, c.kept) << c.notes;
        EXPECT_EQ(partials, 1) << c.notes;
        if (c.command) {
            EXPECT_EQ(run.instruction, AssistantCommandCatalog::command(*c.command)->instruction);
        } else {
            EXPECT_EQ(run.instruction, c.instruction);
        }
    }
}

TEST(ModelRouterClassify, scopesEveryRunToTheActiveEdit) {
    const auto& [transcript, segments] = talk();
    const auto run = ModelRouter::classify(
        segments, "",
        {.transcript = &transcript, .commandID = ID::cleanUp, .candidateKeepIDs = std::set{1, 2, 3}});
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{2}));
    EXPECT_EQ(run.results.at(0).modelNotes, "deterministic:cleanup_composer;scoped_to_active_edit");
    EXPECT_EQ(run.reason(0), "outside_active_edit");
    EXPECT_EQ(run.reason(3), "cleanup_drop:retake");
}

TEST(ModelRouterClassify, usesPausesAlreadyFound) {
    const auto& [transcript, segments] = talk();
    const auto& second = segments.segments[1];
    const std::vector<SilenceSpan> silences{
        SilenceSpan::fromSeconds(second.start.seconds() - 1.0, second.end.seconds() + 1.0)};
    const auto run = ModelRouter::classify(segments, "Cut pauses", {.silences = silences});
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 2, 3, 4}));
    EXPECT_EQ(run.reason(1), "long_silence_overlap");
}

TEST(ModelRouterClassify, modelArmsNeedAModel) {
    const auto& [transcript, segments] = talk();
    try {
        (void)ModelRouter::classify(segments, "Keep the funny bits", {.transcript = &transcript});
        FAIL();
    } catch (const IntelligenceError& e) {
        EXPECT_EQ(e.kind(), IntelligenceError::Kind::languageModelUnavailable);
    }

    EvenParser parser;
    const LanguageModelRoute model{parser, 4096};
    int partials = 0;
    const auto run =
        ModelRouter::classify(segments, "Keep the funny bits",
                              {.transcript = &transcript,
                               .options = InstructionParserOptions{.mode = ClassificationMode::chunk},
                               .onPartial = [&](const ClassificationRun&) { ++partials; },
                               .model = &model});
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 2, 4}));
    EXPECT_EQ(run.modelBackend, ClassificationModelBackend::onDevice);
    EXPECT_EQ(parser.modes, (std::vector{ClassificationMode::chunk}));
    EXPECT_EQ(partials, 2);  // the model's own partial result, then the final run
}

TEST(ModelRouterClassify, packsToTheLengthTheRequestNamesWithOrWithoutATranscript) {
    const auto& [transcript, segments] = testing::longTalk();
    struct Case {
        std::optional<ID> command;
        const char* text;
        const TranscriptDocument* transcript;
        const char* target;
    } cases[] = {
        {ID::shortCut60s, "", &transcript, "target=60s"},
        {ID::shortCut60s, "Build a 90-second version with a strong hook.", &transcript, "target=90s"},
        {ID::shortCut60s, "", nullptr, "target=60s"},
        {std::nullopt, "make a 45 second teaser", &transcript, "target=45s"},
        {std::nullopt, "Pack to a target length", nullptr, "target=60s"},
    };
    for (const auto& c : cases) {
        const auto run =
            ModelRouter::classify(segments, c.text, {.transcript = c.transcript, .commandID = c.command});
        ASSERT_EQ(run.results.size(), 1u) << c.text;
        EXPECT_TRUE(run.results[0].modelNotes->ends_with(c.target)) << *run.results[0].modelNotes;
        EXPECT_FALSE(run.mergedKeepSegmentIDs.empty());
    }
    // The command's run carries the canonical text of its length.
    const auto ninety = ModelRouter::classify(segments, "Build a 90-second version with a strong hook.",
                                              {.commandID = ID::shortCut60s});
    EXPECT_EQ(ninety.instruction, "Build a 90-second version with a strong hook.");
    EXPECT_EQ(ModelRouter::classify(segments, "", {.commandID = ID::shortCut60s}).instruction,
              AssistantCommandCatalog::command(ID::shortCut60s)->instruction);
    // Scoped to the active edit like every rule.
    const auto scoped = ModelRouter::classify(
        segments, "", {.commandID = ID::shortCut60s, .candidateKeepIDs = std::set{0, 1, 2}});
    for (const int id : scoped.mergedKeepSegmentIDs)
        EXPECT_LE(id, 2);
}

}  // namespace
}  // namespace morvane::intelligence
