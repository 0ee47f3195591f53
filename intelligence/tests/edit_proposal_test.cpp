#include "morvane/intelligence/plan/edit_proposal.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/uuid.hpp"

namespace morvane::intelligence {
namespace {

SegmentDocument segments(std::initializer_list<std::pair<double, double>> spans) {
    SegmentDocument document{.sourceTranscript = "/m/talk.mp4"};
    int id = 0;
    for (const auto& [start, end] : spans) {
        document.segments.push_back({id, "Segment " + std::to_string(id),
                                     RationalTime::fromSeconds(start, 600),
                                     RationalTime::fromSeconds(end, 600), id, id});
        ++id;
    }
    document.segmentCount = id;
    return document;
}

ClassificationRun runKeeping(std::vector<int> keep, std::vector<SegmentClassification> verdicts = {}) {
    ClassificationRun run{.instruction = "Remove filler words and disfluencies.",
                          .mergedKeepSegmentIDs = keep};
    if (!verdicts.empty()) run.results.push_back(ClassificationDocument::make({.segmentResults = verdicts}));
    return run;
}

TEST(EditProposalBuilder, readsTheIntentOfAnInstruction) {
    struct Case {
        const char* instruction;
        EditProposalIntent intent;
    } cases[] = {
        {"A short cut about licensing", EditProposalIntent::shortForm},
        {"Tighten the pauses", EditProposalIntent::condense},
        {"Cut the long PAUSES", EditProposalIntent::cleanup},
        {"Keep the intro", EditProposalIntent::topicalKeep},
        {"Build a 60-second version", EditProposalIntent::shortForm},
        {"Make it sparkle", EditProposalIntent::custom},
    };
    for (const auto& c : cases)
        EXPECT_EQ(EditProposalBuilder::intent(c.instruction), c.intent) << c.instruction;
}

TEST(EditProposalBuilder, decidesEverySegmentAndMarksDoubtfulOnesForReview) {
    const auto document = segments({{0, 2}, {2, 5}, {5, 6}, {6, 10}, {10, 12}, {12, 13}});
    ClassificationRun run = runKeeping({0, 1, 4}, {{0, true, 0.35, "guided_selection"},
                                                   {1, true, 0.9, std::nullopt},
                                                   {2, false, 0.5, "filler"},
                                                   {3, false, 0.6, "filler"},
                                                   {4, true, 0.8, "parse_failed"}});
    // A later document's verdict replaces an earlier one.
    run.results.push_back(ClassificationDocument::make({.segmentResults = {{1, true, 0.95, "second look"}}}));
    run.modelBackend = ClassificationModelBackend::onDevice;
    const MediaEvidenceDocument evidence{.durationSeconds = 14.0,
                                         .notes = {"3 silence spans ≥1.5s detected."}};

    const auto proposal = EditProposalBuilder::build(run, document, &evidence);
    EXPECT_TRUE(isUUID(proposal.id));
    EXPECT_EQ(proposal.intent, EditProposalIntent::cleanup);
    EXPECT_EQ(proposal.keepSegmentIDs, (std::vector{0, 1, 4}));
    EXPECT_EQ(proposal.removeSegmentIDs, (std::vector{2, 3, 5}));
    ASSERT_EQ(proposal.decisions.size(), 6u);
    EXPECT_EQ(proposal.decisions[1],
              (EditProposalDecision{1, EditProposalAction::keep, 0.95, "second look", false}));
    EXPECT_EQ(proposal.decisions[5],
              (EditProposalDecision{5, EditProposalAction::remove, 0.4, std::nullopt, true}));
    // Kept at 0.35, removed at 0.5, "parse_failed", and a removal with no verdict; not a removal at 0.6.
    EXPECT_EQ(proposal.requiresReviewSegmentIDs, (std::vector{0, 2, 4, 5}));
    EXPECT_EQ(proposal.warnings,
              (std::vector<std::string>{"3 silence spans ≥1.5s detected.",
                                        "4 segments need review before destructive export."}));
    EXPECT_DOUBLE_EQ(proposal.estimatedSourceDurationSeconds, 14.0);
    EXPECT_DOUBLE_EQ(proposal.estimatedOutputDurationSeconds, 7.0);
    EXPECT_DOUBLE_EQ(proposal.durationDeltaSeconds(), -7.0);
    EXPECT_EQ(proposal.modelBackend, ClassificationModelBackend::onDevice);

    // The media's own length comes first; without it or evidence, the spoken span.
    EXPECT_DOUBLE_EQ(
        EditProposalBuilder::build(run, document, &evidence, 20.0).estimatedSourceDurationSeconds, 20.0);
    EXPECT_DOUBLE_EQ(EditProposalBuilder::build(run, document, nullptr, 0.0).estimatedSourceDurationSeconds,
                     13.0);
    EXPECT_DOUBLE_EQ(EditProposalBuilder::build(run, SegmentDocument{}).estimatedSourceDurationSeconds, 0.0);
    EXPECT_NE(EditProposalBuilder::build(run, document).id, proposal.id);
}

TEST(EditProposalBuilder, withoutVerdictsOnlyRemovalsNeedReview) {
    const auto proposal = EditProposalBuilder::build(runKeeping({0}), segments({{0, 1}, {1, 2}}));
    EXPECT_EQ(proposal.decisions[0].confidence, 0.7);
    EXPECT_FALSE(proposal.decisions[0].requiresReview);
    EXPECT_EQ(proposal.decisions[1].confidence, 0.4);
    EXPECT_TRUE(proposal.decisions[1].requiresReview);
}

TEST(EditProposalValidator, refusesUnknownEmptyAndDuplicateKeeps) {
    const auto document = segments({{0, 1}, {1, 2}, {2, 3}});
    struct Case {
        std::vector<int> keep;
        const SegmentDocument* segments;
        bool valid;
        std::vector<std::string> errors;
        std::vector<int> sanitized;
    } cases[] = {
        {{2, 0}, &document, true, {}, {0, 2}},
        {{9, 7},
         &document,
         false,
         {"Unknown segment IDs: [7, 9]", "Proposal keeps zero segments — refusing to apply empty cut."},
         {}},
        {{1, 4}, &document, false, {"Unknown segment IDs: [4]"}, {1}},
        {{}, &document, false, {"Proposal keeps zero segments — refusing to apply empty cut."}, {}},
        {{2, 1, 2}, &document, false, {"Duplicate keep segment IDs."}, {1, 2, 2}},
    };
    const SegmentDocument empty;
    for (const auto& c : cases) {
        const auto result =
            EditProposalValidator::validate(EditProposal{.keepSegmentIDs = c.keep}, *c.segments);
        EXPECT_EQ(result.isValid, c.valid);
        EXPECT_EQ(result.errors, c.errors);
        EXPECT_EQ(result.sanitizedKeepSegmentIDs, c.sanitized);
    }
    EXPECT_TRUE(EditProposalValidator::validate(EditProposal{}, empty).isValid);
}

TEST(EditProposal, roundTripsThroughJsonAndRequiresAUUID) {
    const auto proposal =
        EditProposalBuilder::build(runKeeping({1}, {{0, false, 0.3, "filler"}, {1, true, 0.9, std::nullopt}}),
                                   segments({{0, 1}, {1, 2}}));
    const std::string text = dumpJson(Json(proposal));
    const Json json = parseJson(text, "proposal.json");
    EXPECT_EQ(JsonReader(json).get<EditProposal>(), proposal);
    EXPECT_EQ(text.find("modelBackend"), std::string::npos);

    Json bad = json;
    bad["id"] = "not-a-uuid";
    EXPECT_THROW((void)JsonReader(bad).get<EditProposal>(), JsonDecodeError);
    bad = json;
    bad["decisions"][0]["action"] = "trim";
    try {
        (void)JsonReader(bad, "proposal.json").get<EditProposal>();
        ADD_FAILURE();
    } catch (const JsonDecodeError& e) {
        EXPECT_STREQ(e.what(), "proposal.json: /decisions/0/action: unknown value \"trim\"");
    }
}

TEST(EditPlanBuilder, keepsSegmentsInTimeOrderAsKeepOperations) {
    auto document = segments({{0, 1.5}, {1.5, 3}, {3, 4.25}});
    std::swap(document.segments[0], document.segments[2]);  // document order isn't time order
    const auto plan = EditPlanBuilder::buildKeepPlan(
        {.sourceID = "src1", .mediaPath = "/media/My Talk.mp4", .frameDuration = {1001, 30000}, .vfr = true},
        document, {2, 0, 42}, "Remove silence.", {{2, 0.96}});
    EXPECT_EQ(plan.version, "0.3");
    EXPECT_EQ(plan.timeline.frameDuration, "1001/30000");
    EXPECT_FALSE(plan.timeline.renderSize.has_value());
    ASSERT_EQ(plan.sources.size(), 1u);
    EXPECT_EQ(plan.sources[0].url, "file:///media/My%20Talk.mp4");
    EXPECT_TRUE(plan.sources[0].vfr);
    ASSERT_EQ(plan.operations.size(), 2u);
    const auto& first = plan.operations[0];
    EXPECT_EQ(first.type, "keep");
    EXPECT_EQ(first.start, "0/600");
    EXPECT_EQ(first.end, "900/600");
    EXPECT_EQ(first.origin->kind, "instruction");
    EXPECT_EQ(first.origin->segmentIDs, (std::vector<std::int64_t>{0}));
    EXPECT_FALSE(first.confidence.has_value());
    EXPECT_EQ(first.reason, "Remove silence.");
    EXPECT_EQ(plan.operations[1].start, "1800/600");
    EXPECT_EQ(plan.operations[1].confidence, 0.96);
    // The plan is a valid document of its own.
    EXPECT_EQ(engine::EditPlanCoding::decode(engine::EditPlanCoding::encode(plan)), plan);
}

}  // namespace
}  // namespace morvane::intelligence
