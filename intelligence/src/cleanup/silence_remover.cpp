#include "morvane/intelligence/cleanup/silence_remover.hpp"

#include <algorithm>

#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "rule_run.hpp"

namespace morvane::intelligence::SilenceRemover {
namespace {

// A segment shorter than this is never judged by its overlap with pauses.
constexpr double kShortestJudgedSeconds = 0.2;
constexpr double kOverlapRatio = 0.7;

bool isSpoken(std::string_view text) {
    const std::string_view trimmed = trimWhitespaceAndNewlines(text);
    return characterCount(trimmed) >= 2 && containsAlphanumeric(trimmed);
}

// The long pauses, and whether they can be searched by time: pauses found by the detector are in time
// order with rising ends, so the ones that can overlap a segment form one run of the list.
class LongPauses {
  public:
    LongPauses(std::span<const engine::SilenceSpan> silences, double minPauseSeconds) {
        for (const auto& silence : silences) {
            if (silence.endSeconds - silence.startSeconds >= minPauseSeconds) pauses_.push_back(silence);
        }
        const auto byStart = [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; };
        const auto byEnd = [](const auto& a, const auto& b) { return a.endSeconds < b.endSeconds; };
        ordered_ = std::is_sorted(pauses_.begin(), pauses_.end(), byStart) &&
                   std::is_sorted(pauses_.begin(), pauses_.end(), byEnd);
    }

    // The seconds of [s, e] inside long pauses, summed in list order. Pauses outside the searched run add
    // exactly nothing, so skipping them changes no bit of the sum.
    [[nodiscard]] double overlap(double s, double e) const {
        auto first = pauses_.begin();
        auto last = pauses_.end();
        if (ordered_) {
            first = std::partition_point(pauses_.begin(), pauses_.end(),
                                         [&](const engine::SilenceSpan& p) { return p.endSeconds <= s; });
            last = std::partition_point(first, pauses_.end(),
                                        [&](const engine::SilenceSpan& p) { return p.startSeconds < e; });
        }
        double sum = 0.0;
        for (auto it = first; it != last; ++it) {
            sum += std::max(std::min(e, it->endSeconds) - std::max(s, it->startSeconds), 0.0);
        }
        return sum;
    }

  private:
    std::vector<engine::SilenceSpan> pauses_;
    bool ordered_ = true;
};

}  // namespace

ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                           const std::optional<std::filesystem::path>& mediaURL, double minPauseSeconds,
                           const ProgressCallback& progress, std::stop_token stop) {
    const auto evidence = CleanupEvidence::read(segments, mediaURL, {.silences = true, .levels = false},
                                                progress, std::move(stop));
    return classify(segments, instruction, evidence.silences, minPauseSeconds);
}

ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                           std::span<const engine::SilenceSpan> silences, double minPauseSeconds) {
    const LongPauses pauses(silences, minPauseSeconds);
    std::vector<SegmentClassification> verdicts;
    verdicts.reserve(segments.segments.size());
    bool anyKept = false;
    for (const auto& segment : segments.segments) {
        const bool spoken = isSpoken(segment.text);
        const double s = segment.start.seconds();
        const double e = segment.end.seconds();
        const double d = std::max(e - s, 0.0);
        const bool overlapping = d > kShortestJudgedSeconds && pauses.overlap(s, e) / d >= kOverlapRatio;
        SegmentClassification verdict{.segmentID = segment.id, .keep = false, .confidence = 0.9};
        if (spoken && !overlapping) {
            verdict = {segment.id, true, 0.96, "spoken_segment"};
        } else {
            verdict.reason = overlapping ? "long_silence_overlap" : "no_speech";
        }
        anyKept = anyKept || verdict.keep;
        verdicts.push_back(std::move(verdict));
    }

    if (!anyKept) {
        // Never an empty cut: keep what has text, or everything when nothing has.
        bool anySpoken = false;
        for (const auto& segment : segments.segments)
            anySpoken = anySpoken || isSpoken(segment.text);
        for (std::size_t i = 0; i < verdicts.size(); ++i) {
            const bool keep = !anySpoken || isSpoken(segments.segments[i].text);
            verdicts[i] = {segments.segments[i].id, keep, 0.8, "silence_remover_fallback"};
        }
    }
    return RuleRun::make(segments, instruction, "deterministic:silence_remover", std::move(verdicts));
}

}  // namespace morvane::intelligence::SilenceRemover
