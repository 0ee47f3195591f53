#include "morvane/intelligence/cleanup/cleanup_composer.hpp"

#include <algorithm>
#include <unordered_set>

#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/cleanup/disfluency_detector.hpp"
#include "morvane/intelligence/cleanup/retake_detector.hpp"
#include "morvane/intelligence/cleanup/silence_remover.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"
#include "rule_run.hpp"

namespace morvane::intelligence::CleanupComposer {
namespace {

std::unordered_set<int> keptBy(const ClassificationRun& run) {
    return {run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end()};
}

// The filler and retake rules run with their own commands' wording, whatever the clean-up was asked as.
std::string_view commandInstruction(AssistantCommandID id) {
    return AssistantCommandCatalog::command(id)->instruction;
}

}  // namespace

ClassificationRun classify(const SegmentDocument& segments, const TranscriptDocument& transcript,
                           std::string_view instruction, const std::optional<std::filesystem::path>& mediaURL,
                           const ProgressCallback& progress, std::stop_token stop) {
    return classify(segments, transcript, instruction,
                    CleanupEvidence::read(segments, mediaURL, {}, progress, std::move(stop)));
}

ClassificationRun classify(const SegmentDocument& segments, const TranscriptDocument& transcript,
                           std::string_view instruction, const CleanupEvidence& evidence) {
    const auto silence = keptBy(SilenceRemover::classify(segments, instruction, evidence.silences,
                                                         SilenceRemover::defaultMinPauseSeconds));
    const auto filler = keptBy(DisfluencyDetector::classify(
        segments, transcript, commandInstruction(AssistantCommandID::fillerOnly), evidence));
    const auto retake = keptBy(RetakeDetector::classify(
        segments, transcript, commandInstruction(AssistantCommandID::retakesOnly), evidence));

    std::vector<int> keep;
    std::vector<SegmentClassification> verdicts;
    verdicts.reserve(segments.segments.size());
    for (const auto& segment : segments.segments) {
        const bool inS = silence.contains(segment.id);
        const bool inF = filler.contains(segment.id);
        const bool inR = retake.contains(segment.id);
        if (inS && inF && inR) {
            keep.push_back(segment.id);
            verdicts.push_back({segment.id, true, 0.93, "cleanup_keep"});
            continue;
        }
        std::string reason = "cleanup_drop:";
        const auto add = [&](bool kept, std::string_view name) {
            if (kept) return;
            if (reason.back() != ':') reason += '+';
            reason += name;
        };
        add(inS, "silence");
        add(inF, "filler");
        add(inR, "retake");
        verdicts.push_back({segment.id, false, 0.9, std::move(reason)});
    }
    // Never an empty cut while something is spoken. The verdicts keep reading as drops: proposals go by
    // the keep list.
    if (keep.empty()) keep.assign(silence.begin(), silence.end());
    std::sort(keep.begin(), keep.end());
    return RuleRun::make(segments, instruction, "deterministic:cleanup_composer", std::move(verdicts),
                         std::move(keep));
}

}  // namespace morvane::intelligence::CleanupComposer
