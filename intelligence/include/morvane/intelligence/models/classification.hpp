#pragma once

/// The common language of every decider, rule or model: a verdict per segment, a document per chunk of
/// segments shown to the decider, and the run that merges them into the kept segment ids.
///
///     auto document = ClassificationDocument::make({.instruction = "Remove silence.",
///                                                   .chunkSegmentIDs = {1, 2, 3},
///                                                   .keepSegmentIDs = {2}});
///     document.segmentResults.size();   // 3: verdicts inferred from the two id lists

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::intelligence {

/// Which language model decided a run.
enum class ClassificationModelBackend { onDevice, remoteModel };

inline constexpr auto kClassificationModelBackendNames = makeEnumTable<ClassificationModelBackend>({
    {ClassificationModelBackend::onDevice, "onDevice"},
    {ClassificationModelBackend::remoteModel, "remoteModel"},
});

/// "On-device" or "Remote model".
[[nodiscard]] std::string_view label(ClassificationModelBackend backend);

/// One verdict on one segment.
struct SegmentClassification {
    int segmentID = 0;
    bool keep = false;
    double confidence = 0.0;            ///< 0 to 1
    std::optional<std::string> reason;  ///< machine-readable; omitted from JSON when absent

    friend bool operator==(const SegmentClassification&, const SegmentClassification&) = default;
};

/// The verdict of one decider on one chunk of segments.
struct ClassificationDocument {
    /// Confidence given to inferred verdicts of kept segments; dropped ones get max(1 - this, 0.15).
    static constexpr double inferredKeepConfidence = 0.85;

    std::string instruction;
    int chunkIndex = 0;                ///< from 0 in the run
    std::vector<int> chunkSegmentIDs;  ///< ids shown to the decider
    std::vector<int> keepSegmentIDs;   ///< ids it keeps
    std::vector<SegmentClassification> segmentResults;
    std::optional<int> estimatedPromptTokens;  ///< absent for rules
    std::optional<std::string> modelNotes;     ///< a rule's name ("deterministic:silence_remover") or a note
    std::optional<std::string> rawResponse;    ///< the model's raw text, where one was received

    /// The document as every decider builds it: with no `segmentResults`, one verdict per chunk id, in
    /// order, kept by membership in `keepSegmentIDs`. Reading JSON never infers.
    [[nodiscard]] static ClassificationDocument make(ClassificationDocument fields);

    friend bool operator==(const ClassificationDocument&, const ClassificationDocument&) = default;
};

/// The whole result of deciding one instruction.
struct ClassificationRun {
    std::string instruction;
    std::vector<ClassificationDocument> results;             ///< one per chunk or pass
    std::vector<int> mergedKeepSegmentIDs;                   ///< the final kept ids
    std::optional<ClassificationModelBackend> modelBackend;  ///< absent for rules
    bool usedOnDeviceFallback = false;  ///< the remote model failed and the on-device one stepped in

    /// The first verdict on `segmentID`, scanning documents and their verdicts in order.
    [[nodiscard]] const SegmentClassification* classification(int segmentID) const;
    [[nodiscard]] std::optional<double> confidence(int segmentID) const;
    [[nodiscard]] std::optional<std::string> reason(int segmentID) const;

    friend bool operator==(const ClassificationRun&, const ClassificationRun&) = default;
};

// JSON: keys are the field names. Optional fields are omitted when absent; an unknown "modelBackend"
// reads as no backend.
void to_json(Json& json, const SegmentClassification& verdict);
void fromJson(const JsonReader& reader, SegmentClassification& verdict);
void to_json(Json& json, const ClassificationDocument& document);
void fromJson(const JsonReader& reader, ClassificationDocument& document);
void to_json(Json& json, const ClassificationRun& run);
void fromJson(const JsonReader& reader, ClassificationRun& run);

}  // namespace morvane::intelligence
