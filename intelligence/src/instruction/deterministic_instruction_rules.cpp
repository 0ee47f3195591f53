#include "morvane/intelligence/instruction/deterministic_instruction_rules.hpp"

#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {

std::optional<ClassificationRun> DeterministicInstructionRules::classify(const SegmentDocument& segments,
                                                                         std::string_view instruction) {
    if (!containsAny(lowercased(instruction),
                     {"without transcription", "without any transcription", "no transcription",
                      "without speech", "no speech", "no dialogue", "silent segments", "silence only"})) {
        return std::nullopt;
    }
    ClassificationDocument document{.instruction = std::string(instruction),
                                    .chunkIndex = 0,
                                    .modelNotes = "deterministic:transcription_filter"};
    for (const auto& segment : segments.segments) {
        const std::string_view text = trimWhitespaceAndNewlines(segment.text);
        const bool keep = characterCount(text) >= 3 && containsAlphanumeric(text);
        document.chunkSegmentIDs.push_back(segment.id);
        if (keep) document.keepSegmentIDs.push_back(segment.id);
        document.segmentResults.push_back({segment.id, keep, 0.98, "deterministic:no_transcription"});
    }
    ClassificationRun run{.instruction = std::string(instruction),
                          .mergedKeepSegmentIDs = document.keepSegmentIDs};
    run.results.push_back(ClassificationDocument::make(std::move(document)));
    return run;
}

}  // namespace morvane::intelligence
