#include "morvane/intelligence/plan/edit_proposal.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

double lengthSeconds(const TranscriptSegment& segment) {
    return std::max(segment.end.seconds() - segment.start.seconds(), 0.0);
}

// "[3, 7]", as lists are printed in messages.
std::string listForm(const std::vector<int>& ids) {
    std::string text = "[";
    for (std::size_t i = 0; i < ids.size(); ++i)
        text += (i > 0 ? ", " : "") + std::to_string(ids[i]);
    return text + "]";
}

}  // namespace

EditProposalIntent EditProposalBuilder::intent(std::string_view instruction) {
    const std::string lowered = lowercased(instruction);
    if (containsAny(lowered, {"60-second", "short", "hook"})) return EditProposalIntent::shortForm;
    if (containsAny(lowered, {"concise", "tighten", "condense"})) return EditProposalIntent::condense;
    if (containsAny(lowered, {"filler", "mistake", "pause", "retake"})) return EditProposalIntent::cleanup;
    if (containsAny(lowered, {"topic", "keep", "about"})) return EditProposalIntent::topicalKeep;
    return EditProposalIntent::custom;
}

EditProposal EditProposalBuilder::build(const ClassificationRun& run, const SegmentDocument& segments,
                                        const MediaEvidenceDocument* evidence,
                                        std::optional<double> sourceMediaDurationSeconds) {
    EditProposal proposal{.id = makeUUID(),
                          .instruction = run.instruction,
                          .intent = intent(run.instruction),
                          .keepSegmentIDs = run.mergedKeepSegmentIDs,
                          .modelBackend = run.modelBackend};
    const std::unordered_set<int> kept(run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end());
    std::unordered_map<int, const SegmentClassification*> verdicts;
    for (const auto& document : run.results) {
        for (const auto& verdict : document.segmentResults)
            verdicts[verdict.segmentID] = &verdict;
    }
    if (evidence != nullptr) proposal.warnings = evidence->notes;

    for (const auto& segment : segments.segments) {
        const bool keep = kept.contains(segment.id);
        if (keep) {
            proposal.estimatedOutputDurationSeconds += lengthSeconds(segment);
        } else {
            proposal.removeSegmentIDs.push_back(segment.id);
        }
        const auto found = verdicts.find(segment.id);
        const SegmentClassification* verdict = found == verdicts.end() ? nullptr : found->second;
        EditProposalDecision decision{.segmentID = segment.id,
                                      .action = keep ? EditProposalAction::keep : EditProposalAction::remove,
                                      .confidence = verdict ? verdict->confidence : (keep ? 0.7 : 0.4),
                                      .reason = verdict ? verdict->reason : std::nullopt};
        // A "needs_review" verdict carries confidence 0, which the first test catches.
        decision.requiresReview = decision.confidence < 0.4 || (!keep && decision.confidence < 0.55) ||
                                  decision.reason == "parse_failed" || decision.reason == "guardrail";
        if (decision.requiresReview) proposal.requiresReviewSegmentIDs.push_back(segment.id);
        proposal.decisions.push_back(std::move(decision));
    }
    if (!proposal.requiresReviewSegmentIDs.empty()) {
        proposal.warnings.push_back(std::to_string(proposal.requiresReviewSegmentIDs.size()) +
                                    " segments need review before destructive export.");
    }
    std::sort(proposal.requiresReviewSegmentIDs.begin(), proposal.requiresReviewSegmentIDs.end());

    double spoken = 0.0;
    if (!segments.segments.empty()) {
        spoken =
            std::max(segments.segments.back().end.seconds() - segments.segments.front().start.seconds(), 0.0);
    }
    for (const std::optional<double> candidate :
         {sourceMediaDurationSeconds, evidence ? std::optional(evidence->durationSeconds) : std::nullopt,
          std::optional(spoken)}) {
        if (candidate && *candidate > 0.0) {
            proposal.estimatedSourceDurationSeconds = *candidate;
            break;
        }
    }
    return proposal;
}

EditProposalValidation EditProposalValidator::validate(const EditProposal& proposal,
                                                       const SegmentDocument& segments) {
    std::unordered_set<int> known;
    for (const auto& segment : segments.segments)
        known.insert(segment.id);
    EditProposalValidation validation;
    std::vector<int> unknown;
    for (int id : proposal.keepSegmentIDs) {
        (known.contains(id) ? validation.sanitizedKeepSegmentIDs : unknown).push_back(id);
    }
    if (!unknown.empty()) {
        std::sort(unknown.begin(), unknown.end());
        validation.errors.push_back("Unknown segment IDs: " + listForm(unknown));
    }
    if (!segments.segments.empty() && validation.sanitizedKeepSegmentIDs.empty()) {
        validation.errors.push_back("Proposal keeps zero segments — refusing to apply empty cut.");
    }
    std::sort(validation.sanitizedKeepSegmentIDs.begin(), validation.sanitizedKeepSegmentIDs.end());
    const std::set<int> distinct(proposal.keepSegmentIDs.begin(), proposal.keepSegmentIDs.end());
    if (distinct.size() != proposal.keepSegmentIDs.size()) {
        validation.errors.push_back("Duplicate keep segment IDs.");
        validation.isValid = false;
    } else {
        validation.isValid = validation.errors.empty();
    }
    return validation;
}

engine::EditPlan EditPlanBuilder::buildKeepPlan(const KeepPlanSource& source, const SegmentDocument& segments,
                                                const std::vector<int>& keepSegmentIDs,
                                                std::optional<std::string> instruction,
                                                const std::map<int, double>& segmentConfidences) {
    const std::unordered_set<int> keep(keepSegmentIDs.begin(), keepSegmentIDs.end());
    std::vector<const TranscriptSegment*> kept;
    for (const auto& segment : segments.segments) {
        if (keep.contains(segment.id)) kept.push_back(&segment);
    }
    std::stable_sort(kept.begin(), kept.end(), [](const TranscriptSegment* a, const TranscriptSegment* b) {
        return a->start < b->start;
    });

    const std::string frameDuration = source.frameDuration.formatted(false);
    engine::EditPlan plan;
    plan.timeline.frameDuration = frameDuration;
    plan.sources.push_back({.id = source.sourceID,
                            .url = fileURL(std::filesystem::absolute(source.mediaPath).lexically_normal()),
                            .frameDuration = frameDuration,
                            .vfr = source.vfr});
    for (const TranscriptSegment* segment : kept) {
        engine::EditPlanOperation operation{
            .type =
                std::string(engine::kEditPlanOperationTypeNames.text(engine::EditPlanOperationType::keep)),
            .sourceID = source.sourceID,
            .start = segment->start.formatted(false),
            .end = segment->end.formatted(false),
            .origin = engine::EditPlanOrigin{.kind = std::string(engine::kEditPlanOriginKindNames.text(
                                                 engine::EditPlanOriginKind::instruction)),
                                             .segmentIDs = std::vector<std::int64_t>{segment->id}},
            .reason = instruction};
        if (const auto it = segmentConfidences.find(segment->id); it != segmentConfidences.end()) {
            operation.confidence = it->second;
        }
        plan.operations.push_back(std::move(operation));
    }
    return plan;
}

void to_json(Json& json, const EditProposalDecision& decision) {
    json = Json::object();
    json["segmentID"] = decision.segmentID;
    json["action"] = kEditProposalActionNames.text(decision.action);
    json["confidence"] = decision.confidence;
    if (decision.reason) json["reason"] = *decision.reason;
    json["requiresReview"] = decision.requiresReview;
}

void fromJson(const JsonReader& reader, EditProposalDecision& decision) {
    decision.segmentID = reader["segmentID"].get<int>();
    decision.action = readCase(reader["action"], kEditProposalActionNames);
    decision.confidence = reader["confidence"].get<double>();
    decision.reason = reader.optional<std::string>("reason");
    decision.requiresReview = reader["requiresReview"].get<bool>();
}

void to_json(Json& json, const EditProposal& proposal) {
    json = Json::object();
    json["id"] = proposal.id;
    json["instruction"] = proposal.instruction;
    json["intent"] = kEditProposalIntentNames.text(proposal.intent);
    json["keepSegmentIDs"] = proposal.keepSegmentIDs;
    json["removeSegmentIDs"] = proposal.removeSegmentIDs;
    json["decisions"] = proposal.decisions;
    json["estimatedSourceDurationSeconds"] = proposal.estimatedSourceDurationSeconds;
    json["estimatedOutputDurationSeconds"] = proposal.estimatedOutputDurationSeconds;
    json["warnings"] = proposal.warnings;
    if (proposal.modelBackend)
        json["modelBackend"] = kClassificationModelBackendNames.text(*proposal.modelBackend);
    json["requiresReviewSegmentIDs"] = proposal.requiresReviewSegmentIDs;
}

void fromJson(const JsonReader& reader, EditProposal& proposal) {
    const JsonReader id = reader["id"];
    proposal.id = id.get<std::string>();
    if (!isUUID(proposal.id)) id.fail("expected a UUID");
    proposal.instruction = reader["instruction"].get<std::string>();
    proposal.intent = readCase(reader["intent"], kEditProposalIntentNames);
    proposal.keepSegmentIDs = reader["keepSegmentIDs"].get<std::vector<int>>();
    proposal.removeSegmentIDs = reader["removeSegmentIDs"].get<std::vector<int>>();
    proposal.decisions = reader["decisions"].get<std::vector<EditProposalDecision>>();
    proposal.estimatedSourceDurationSeconds = reader["estimatedSourceDurationSeconds"].get<double>();
    proposal.estimatedOutputDurationSeconds = reader["estimatedOutputDurationSeconds"].get<double>();
    proposal.warnings = reader["warnings"].get<std::vector<std::string>>();
    const auto backend = reader.optional<std::string>("modelBackend");
    proposal.modelBackend = backend ? kClassificationModelBackendNames.parse(*backend) : std::nullopt;
    proposal.requiresReviewSegmentIDs = reader["requiresReviewSegmentIDs"].get<std::vector<int>>();
}

}  // namespace morvane::intelligence
