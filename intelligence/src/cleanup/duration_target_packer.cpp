#include "morvane/intelligence/cleanup/duration_target_packer.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "../publish/disfluency_hit_counter.hpp"
#include "morvane/intelligence/support/regex.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "rule_run.hpp"

namespace morvane::intelligence {
namespace {

struct WordForm {
    std::string_view phrase;
    double seconds;
};

constexpr WordForm kWordForms[] = {
    {"three-minute", 180}, {"three minute", 180}, {"3-minute", 180}, {"3 minute", 180},
    {"two-minute", 120},   {"two minute", 120},   {"2-minute", 120}, {"2 minute", 120},
    {"one-minute", 60},    {"one minute", 60},    {"1-minute", 60},  {"1 minute", 60},
};

struct LengthPattern {
    std::optional<Regex> regex;
    double multiplier;
};

const std::array<LengthPattern, 4>& lengthPatterns() {
    static const std::array<LengthPattern, 4> patterns{{
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*-?\s*seconds?)"), 1.0},
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*s\b)"), 1.0},
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*-?\s*min(?:ute)?s?\b)"), 60.0},
        {Regex::compile(R"(build a (\d+))"), 1.0},
    }};
    return patterns;
}

// A decimal number as written ("90", "1.5"), parsed locale-free; digits of other scripts don't parse.
std::optional<double> parseDecimal(std::string_view text) {
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

double clampTarget(double seconds) {
    return std::clamp(seconds, DurationTargetPacker::minimumTargetSeconds,
                      DurationTargetPacker::maximumTargetSeconds);
}

constexpr int kMaxCandidates = 5;

double lengthSeconds(const TranscriptSegment& segment) {
    return std::max(segment.end.subtracting(segment.start).seconds(), 0.0);
}

// Seconds as a whole number, cut toward zero, as the run's note shows a target.
long long wholeSeconds(double seconds) {
    if (!std::isfinite(seconds)) return 0;
    constexpr double limit = static_cast<double>(std::numeric_limits<int>::max());
    return static_cast<long long>(std::clamp(seconds, -limit, limit));
}

// What a window's first line adds to its packing score.
struct FirstLine {
    bool question = false;
    bool hook = false;

    explicit FirstLine(const TranscriptSegment& segment) {
        const std::string lowered = lowercased(segment.text);
        question = lowered.find('?') != std::string::npos;
        hook =
            containsAny(lowered, {"here's", "here is", "why", "how", "what", "secret", "mistake", "truth"});
    }
};

double packingScore(const FirstLine& line, double durationSeconds, double targetSeconds,
                    std::optional<int> fillers) {
    // 0.3 + 0.15 as the sum lands in binary, so that scores compare exactly as they always have.
    double score = line.question ? 0.44999999999999996 : 0.3;
    if (line.hook) score += 0.12;
    const double miss = targetSeconds > 0.0 ? std::abs(durationSeconds - targetSeconds) / targetSeconds : 1.0;
    score += (1.0 - std::min(miss, 1.0)) * 0.25;
    if (fillers) score -= std::min(*fillers * 0.02, 0.15);
    return score;
}

std::unordered_map<int, const TranscriptSegment*> segmentsByID(const SegmentDocument& segments) {
    std::unordered_map<int, const TranscriptSegment*> byID;
    byID.reserve(segments.segments.size());
    for (const auto& segment : segments.segments)
        byID.try_emplace(segment.id, &segment);
    return byID;
}

}  // namespace

std::optional<double> DurationTargetPacker::targetSeconds(std::string_view instruction) {
    const std::string lowered = lowercased(instruction);
    for (const auto& form : kWordForms) {
        if (lowered.find(form.phrase) != std::string::npos) return form.seconds;
    }
    for (const auto& pattern : lengthPatterns()) {
        if (!pattern.regex) continue;
        const auto match = pattern.regex->firstMatch(lowered);
        if (!match) continue;
        const auto capture = match->capture(1);
        if (!capture) continue;
        const auto value = parseDecimal(*capture);
        if (!value || !(*value > 0.0)) continue;
        return clampTarget(*value * pattern.multiplier);
    }
    return std::nullopt;
}

bool DurationTargetPacker::matches(std::string_view instruction) {
    if (targetSeconds(instruction)) return true;
    return containsAny(lowercased(instruction),
                       {"short version with a strong hook", "short cut", "pack to a target"});
}

DurationTargetPacker::SecondsRange DurationTargetPacker::range(double targetSeconds) {
    const double c = clampTarget(targetSeconds);
    return {std::max(5.0, std::min(c - 0.5, c * 0.75)), c};
}

double DurationTargetPacker::hardMax(double targetSeconds) {
    if (targetSeconds < 8.0) return 10.0;
    if (targetSeconds >= 600.0) return 750.0;
    return std::min(std::max(targetSeconds * 1.25, 10.0), 750.0);
}

std::string DurationTargetPacker::displayLabel(double seconds) {
    const auto n = std::max<long long>(std::llround(seconds), 1);
    if (n >= 60 && n % 60 == 0) return n < 120 ? "1 min" : std::to_string(n / 60) + " min";
    return std::to_string(n) + "s";
}

std::string DurationTargetPacker::instruction(double targetSeconds) {
    const auto n = std::max<long long>(std::llround(targetSeconds), 1);
    return "Build a " + std::to_string(n) + "-second version with a strong hook.";
}

double DurationTargetPacker::outputDurationSeconds(std::span<const int> keepIDs,
                                                   const SegmentDocument& segments) {
    const std::set<int> kept(keepIDs.begin(), keepIDs.end());
    double total = 0.0;
    for (const auto& segment : segments.segments) {
        if (kept.contains(segment.id)) total += lengthSeconds(segment);
    }
    return total;
}

double DurationTargetPacker::windowScore(std::span<const TranscriptSegment> window,
                                         const TranscriptDocument* transcript, double durationSeconds,
                                         double targetSeconds) {
    if (window.empty()) return 0.0;
    std::optional<int> fillers;
    if (transcript) {
        fillers = DisfluencyHitCounter(transcript).count(window.front().wordStartID, window.back().wordEndID);
    }
    return packingScore(FirstLine(window.front()), durationSeconds, targetSeconds, fillers);
}

std::vector<int> DurationTargetPacker::greedyPack(const SegmentDocument& segments,
                                                  const std::set<int>& poolIDs,
                                                  const TranscriptDocument* transcript, double maxSeconds) {
    std::vector<const TranscriptSegment*> list;
    for (const auto& segment : segments.segments) {
        if (poolIDs.contains(segment.id)) list.push_back(&segment);
    }
    std::stable_sort(list.begin(), list.end(), [](const TranscriptSegment* a, const TranscriptSegment* b) {
        return a->start < b->start;
    });

    const DisfluencyHitCounter hits(transcript);
    double bestScore = -1.0;
    std::optional<std::pair<std::size_t, std::size_t>> best;
    for (std::size_t first = 0; first < list.size(); ++first) {
        const FirstLine line(*list[first]);
        double total = 0.0;
        for (std::size_t last = first; last < list.size(); ++last) {
            total += lengthSeconds(*list[last]);
            if (total > maxSeconds && last > first) break;
            if (total < maxSeconds * 0.5) continue;
            std::optional<int> fillers;
            if (transcript) fillers = hits.count(list[first]->wordStartID, list[last]->wordEndID);
            const double score = packingScore(line, total, maxSeconds, fillers);
            if (score > bestScore) {
                bestScore = score;
                best = {first, last};
            }
        }
    }

    std::vector<int> ids;
    if (best) {
        for (std::size_t i = best->first; i <= best->second; ++i)
            ids.push_back(list[i]->id);
        return ids;
    }
    // Nothing reaches half the length: as much as fits from the start.
    double total = 0.0;
    for (const TranscriptSegment* segment : list) {
        const double length = lengthSeconds(*segment);
        if (!ids.empty() && total + length > maxSeconds) break;
        ids.push_back(segment->id);
        total += length;
    }
    return ids;
}

std::vector<int> DurationTargetPacker::clampToHardMax(std::span<const int> keepIDs,
                                                      const SegmentDocument& segments,
                                                      double hardMaxSeconds) {
    const auto byID = segmentsByID(segments);
    std::vector<int> kept;
    double total = 0.0;
    for (const int id : keepIDs) {
        const auto found = byID.find(id);
        if (found == byID.end()) continue;
        const double length = lengthSeconds(*found->second);
        if (!kept.empty() && total + length > hardMaxSeconds) break;
        kept.push_back(id);
        total += length;
    }
    return kept;
}

ClassificationRun DurationTargetPacker::classify(const SegmentDocument& segments,
                                                 const TranscriptDocument* transcript,
                                                 std::string_view instruction,
                                                 const std::optional<std::set<int>>& candidateKeepIDs,
                                                 std::optional<SecondsRange> targetRange) {
    const double target = targetSeconds(instruction).value_or(defaultTargetSeconds);
    const SecondsRange window = targetRange.value_or(range(target));
    std::set<int> pool;
    if (candidateKeepIDs) {
        pool = *candidateKeepIDs;
    } else {
        for (const auto& segment : segments.segments)
            pool.insert(segment.id);
    }

    std::vector<int> keep;
    std::string note;
    const auto candidates =
        ShortsCandidateScorer::propose(segments, transcript, pool, kMaxCandidates, window);
    if (!candidates.empty()) {
        keep = candidates.front().segmentIDs;
        note = fmt::format("duration_pack:shorts_window;score={:.2f};target={}s", candidates.front().score,
                           wholeSeconds(window.upper));
    } else {
        keep = greedyPack(segments, pool, transcript, window.upper);
        note = fmt::format("duration_pack:greedy;target={}s", wholeSeconds(window.upper));
    }
    keep = clampToHardMax(keep, segments, hardMax(window.upper));

    const std::set<int> kept(keep.begin(), keep.end());
    std::vector<SegmentClassification> verdicts;
    verdicts.reserve(segments.segments.size());
    for (const auto& segment : segments.segments) {
        verdicts.push_back(kept.contains(segment.id)
                               ? SegmentClassification{segment.id, true, 0.91, "duration_pack_keep"}
                               : SegmentClassification{segment.id, false, 0.88, "duration_pack_drop"});
    }
    ClassificationRun run = RuleRun::make(segments, instruction, note, std::move(verdicts), keep);
    run.mergedKeepSegmentIDs = std::move(keep);  // in the order reached, not sorted
    return run;
}

}  // namespace morvane::intelligence
