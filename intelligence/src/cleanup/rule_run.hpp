#pragma once

// The run every cleanup rule returns: one document over all segments, with no token estimate, raw
// response or model.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::RuleRun {

// `verdicts` hold one verdict per segment in document order. The document keeps `keep` when given,
// otherwise the kept verdicts' ids in document order; the run's merged ids are those sorted.
inline ClassificationRun make(const SegmentDocument& segments, std::string_view instruction,
                              std::string_view notes, std::vector<SegmentClassification> verdicts,
                              std::optional<std::vector<int>> keep = std::nullopt) {
    ClassificationDocument document{
        .instruction = std::string(instruction), .chunkIndex = 0, .modelNotes = std::string(notes)};
    document.chunkSegmentIDs.reserve(segments.segments.size());
    for (const auto& segment : segments.segments)
        document.chunkSegmentIDs.push_back(segment.id);
    if (keep) {
        document.keepSegmentIDs = std::move(*keep);
    } else {
        for (const auto& verdict : verdicts) {
            if (verdict.keep) document.keepSegmentIDs.push_back(verdict.segmentID);
        }
    }
    document.segmentResults = std::move(verdicts);
    ClassificationRun run{.instruction = std::string(instruction),
                          .mergedKeepSegmentIDs = document.keepSegmentIDs};
    std::sort(run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end());
    run.results.push_back(ClassificationDocument::make(std::move(document)));
    return run;
}

}  // namespace morvane::intelligence::RuleRun
