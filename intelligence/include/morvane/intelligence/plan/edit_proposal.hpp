#pragma once

/// What the user is shown and can accept: a decider's run as a reviewable record, with a decision per
/// segment, estimated lengths, warnings, and the segments a person should look at before a destructive
/// export. Building never fails; validation refuses what can't be applied.
///
///     EditProposal proposal = EditProposalBuilder::build(run, segments, &evidence, 612.0);
///     auto check = EditProposalValidator::validate(proposal, segments);
///     if (!check.isValid) showErrors(check.errors);
///     EditPlan plan = EditPlanBuilder::buildKeepPlan({.sourceID = "src1", .mediaPath = "/m/talk.mp4",
///                                                     .frameDuration = {1001, 30000}}, segments,
///                                                    check.sanitizedKeepSegmentIDs);

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"
#include "morvane/intelligence/evidence/media_evidence_document.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

enum class EditProposalAction { keep, remove };

inline constexpr auto kEditProposalActionNames = makeEnumTable<EditProposalAction>({
    {EditProposalAction::keep, "keep"},
    {EditProposalAction::remove, "remove"},
});

/// What kind of cut an instruction asks for.
enum class EditProposalIntent { cleanup, topicalKeep, condense, shortForm, custom };

inline constexpr auto kEditProposalIntentNames = makeEnumTable<EditProposalIntent>({
    {EditProposalIntent::cleanup, "cleanup"},
    {EditProposalIntent::topicalKeep, "topicalKeep"},
    {EditProposalIntent::condense, "condense"},
    {EditProposalIntent::shortForm, "shortForm"},
    {EditProposalIntent::custom, "custom"},
});

struct EditProposalDecision {
    int segmentID = 0;
    EditProposalAction action = EditProposalAction::keep;
    double confidence = 0.0;            ///< the verdict's, or a fallback
    std::optional<std::string> reason;  ///< the verdict's; omitted from JSON when absent
    bool requiresReview = false;        ///< a person should check this
    friend bool operator==(const EditProposalDecision&, const EditProposalDecision&) = default;
};

struct EditProposal {
    std::string id;  ///< a fresh UUID per proposal
    std::string instruction;
    EditProposalIntent intent = EditProposalIntent::custom;
    std::vector<int> keepSegmentIDs;              ///< as the run merged them
    std::vector<int> removeSegmentIDs;            ///< all others, in document order
    std::vector<EditProposalDecision> decisions;  ///< one per segment, in document order
    double estimatedSourceDurationSeconds = 0.0;
    double estimatedOutputDurationSeconds = 0.0;
    std::vector<std::string> warnings;  ///< evidence notes, then the review warning
    std::optional<ClassificationModelBackend> modelBackend;
    std::vector<int> requiresReviewSegmentIDs;  ///< ascending

    /// Output minus source, in seconds: negative for a cut that shortens.
    [[nodiscard]] double durationDeltaSeconds() const noexcept {
        return estimatedOutputDurationSeconds - estimatedSourceDurationSeconds;
    }
    friend bool operator==(const EditProposal&, const EditProposal&) = default;
};

/// Whether a proposal can be applied, and the keep list to apply.
struct EditProposalValidation {
    bool isValid = false;
    std::vector<std::string> errors;
    std::vector<int> sanitizedKeepSegmentIDs;  ///< known ids, ascending
    friend bool operator==(const EditProposalValidation&, const EditProposalValidation&) = default;
};

namespace EditProposalBuilder {

/// The intent an instruction reads as: short form ("60-second", "short", "hook"), then condense, then
/// cleanup, then topical keep, otherwise custom.
[[nodiscard]] EditProposalIntent intent(std::string_view instruction);

/// The proposal for `run` over `segments`. `evidence` contributes its notes and, after
/// `sourceMediaDurationSeconds`, its duration.
[[nodiscard]] EditProposal build(const ClassificationRun& run, const SegmentDocument& segments,
                                 const MediaEvidenceDocument* evidence = nullptr,
                                 std::optional<double> sourceMediaDurationSeconds = std::nullopt);

}  // namespace EditProposalBuilder

namespace EditProposalValidator {

/// Refuses keep lists with unknown ids, with no known id (for a document that has segments), or with a
/// duplicate id, saying why.
[[nodiscard]] EditProposalValidation validate(const EditProposal& proposal, const SegmentDocument& segments);

}  // namespace EditProposalValidator

namespace EditPlanBuilder {

struct KeepPlanSource {
    std::string sourceID;
    std::filesystem::path mediaPath;  ///< made absolute and written as a file URL
    engine::RationalTime frameDuration{1001, 30000};
    bool vfr = false;
};

/// A plan that keeps the given segments of one source in time order, one "keep" operation each, whatever
/// the order of `keepSegmentIDs`; ids without a segment are ignored.
[[nodiscard]] engine::EditPlan buildKeepPlan(const KeepPlanSource& source, const SegmentDocument& segments,
                                             const std::vector<int>& keepSegmentIDs,
                                             std::optional<std::string> instruction = std::nullopt,
                                             const std::map<int, double>& segmentConfidences = {});

}  // namespace EditPlanBuilder

// JSON: keys are the field names; optional members are omitted when absent.
void to_json(Json& json, const EditProposalDecision& decision);
void fromJson(const JsonReader& reader, EditProposalDecision& decision);
void to_json(Json& json, const EditProposal& proposal);
void fromJson(const JsonReader& reader, EditProposal& proposal);

}  // namespace morvane::intelligence
