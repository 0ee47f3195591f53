#include "morvane/intelligence/cleanup/disfluency_detector.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "filler_score.hpp"
#include "morvane/engine/support/fatal.hpp"
#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "rule_run.hpp"
#include "segment_words.hpp"

namespace morvane::intelligence::DisfluencyDetector {
namespace {

const std::optional<double> kUnmeasured;

}  // namespace

bool isFiller(std::string_view wordText) {
    const std::string lowered = lowercased(trimWhitespaceAndNewlines(wordText));
    const std::string_view token = trimmingPunctuation(lowered);
    return !token.empty() && std::find(fillerTokens.begin(), fillerTokens.end(), token) != fillerTokens.end();
}

int disfluencyCount(const TranscriptSegment& segment, const TranscriptDocument& transcript) {
    int count = 0;
    for (const auto& word : transcript.words) {
        if (word.id >= segment.wordStartID && word.id <= segment.wordEndID && isFiller(word.text)) ++count;
    }
    return count;
}

double disfluencyScore(const TranscriptSegment& segment, const TranscriptDocument& transcript,
                       const engine::PCMBuffer* pcm) {
    SegmentWords::Counts counts;
    for (const auto& word : transcript.words) {
        if (word.id < segment.wordStartID || word.id > segment.wordEndID) continue;
        ++counts.words;
        if (isFiller(word.text)) ++counts.fillers;
    }
    const std::optional<double> rms = pcm != nullptr ? SegmentAudioMeter::rms(segment, *pcm) : std::nullopt;
    return fillerScore(counts, segment.end.seconds() - segment.start.seconds(), rms);
}

ClassificationRun classify(const SegmentDocument& segments, const TranscriptDocument& transcript,
                           std::string_view instruction, const std::optional<std::filesystem::path>& mediaURL,
                           const ProgressCallback& progress, std::stop_token stop) {
    const auto evidence = CleanupEvidence::read(segments, mediaURL, {.silences = false, .levels = true},
                                                progress, std::move(stop));
    return classify(segments, transcript, instruction, evidence);
}

ClassificationRun classify(const SegmentDocument& segments, const TranscriptDocument& transcript,
                           std::string_view instruction, const CleanupEvidence& evidence) {
    const bool identify = mode(instruction).value_or(Mode::removeFiller) == Mode::identifyFiller;
    MORVANE_ASSERT(!evidence.levels || evidence.levels->size() == segments.segments.size(),
                   "evidence levels were read for another segment document");
    const SegmentWords words(transcript);
    std::vector<SegmentClassification> verdicts;
    verdicts.reserve(segments.segments.size());
    for (std::size_t i = 0; i < segments.segments.size(); ++i) {
        const TranscriptSegment& segment = segments.segments[i];
        const double score =
            fillerScore(words.counts(segment), segment.end.seconds() - segment.start.seconds(),
                        evidence.levels ? (*evidence.levels)[i].rms : kUnmeasured);
        const bool disfluent = score >= disfluentScore;
        verdicts.push_back({.segmentID = segment.id,
                            .keep = identify ? disfluent : !disfluent,
                            .confidence = std::clamp(std::abs(score - 0.5) + 0.5, 0.55, 0.99),
                            .reason = disfluent ? fmt::format("disfluency_score={:.2f}", score)
                                                : std::string("clean speech")});
    }
    return RuleRun::make(segments, instruction, "deterministic:disfluency_detector", std::move(verdicts));
}

}  // namespace morvane::intelligence::DisfluencyDetector
