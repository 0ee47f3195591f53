#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "disfluency_hit_counter.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {

double ShortsCandidate::durationSeconds() const noexcept {
    return std::max(sourceEnd.subtracting(sourceStart).seconds(), 0.0);
}

void to_json(Json& json, const ShortsCandidate& candidate) {
    json = Json::object();
    json["id"] = candidate.id;
    json["title"] = candidate.title;
    json["segmentIDs"] = candidate.segmentIDs;
    json["sourceStart"] = candidate.sourceStart;
    json["sourceEnd"] = candidate.sourceEnd;
    json["score"] = candidate.score;
    json["hookSummary"] = candidate.hookSummary;
}

void fromJson(const JsonReader& reader, ShortsCandidate& candidate) {
    const JsonReader id = reader["id"];
    candidate.id = id.get<std::string>();
    if (!isUUID(candidate.id)) id.fail("expected a UUID");
    candidate.title = reader["title"].get<std::string>();
    candidate.segmentIDs = reader["segmentIDs"].get<std::vector<int>>();
    candidate.sourceStart = reader["sourceStart"].get<RationalTime>();
    candidate.sourceEnd = reader["sourceEnd"].get<RationalTime>();
    candidate.score = reader["score"].get<double>();
    candidate.hookSummary = reader["hookSummary"].get<std::string>();
}

namespace ShortsCandidateScorer {
namespace {

constexpr double kNearScores = 0.01;
constexpr double kOverlapShare = 0.55;
constexpr std::size_t kTitleMaxCharacters = 72;
constexpr std::size_t kTitleCutCharacters = 69;

bool holdsHookWord(std::string_view lowered) {
    return std::any_of(hookWords.begin(), hookWords.end(),
                       [&](std::string_view word) { return lowered.find(word) != std::string_view::npos; });
}

// What the opening line adds to a score.
struct Opening {
    bool question = false;
    bool hook = false;
    bool brief = false;  // under 15 words between blanks

    explicit Opening(std::string_view lowered) : question(lowered.find('?') != std::string_view::npos) {
        hook = holdsHookWord(lowered);
        std::size_t words = 0;
        bool inWord = false;
        for (const char c : lowered) {
            if (c != ' ' && !inWord) ++words;
            inWord = c != ' ';
        }
        brief = words < 15;
    }
};

// One segment's text as scoring reads it, lowered once for every window that holds it.
struct LineText {
    std::string lowered;
    std::vector<std::string_view> words;  // views into `lowered`; built once the line has its final place
    std::optional<bool> closesWithStop;   // none for a blank line, which leaves the window's ending as it was

    explicit LineText(std::string_view text) : lowered(lowercased(text)) {
        const std::string_view trimmed = trimWhitespaceAndNewlines(text);
        if (!trimmed.empty()) closesWithStop = trimmed.back() == '.';
    }
};

// The lines of a growing window: its words, how many differ, and whether it ends on a full stop.
class WindowWords {
  public:
    void add(const LineText& line) {
        for (const std::string_view word : line.words)
            distinct_.insert(word);
        count_ += line.words.size();
        if (line.closesWithStop) closesWithStop_ = *line.closesWithStop;
    }

    void clear() {
        distinct_.clear();
        count_ = 0;
        closesWithStop_ = false;
    }

    [[nodiscard]] double variety() const {
        const double share =
            static_cast<double>(distinct_.size()) / static_cast<double>(std::max<std::size_t>(count_, 1));
        return std::min(share * 0.12, 0.12);
    }
    [[nodiscard]] bool closesWithStop() const { return closesWithStop_; }

  private:
    std::unordered_set<std::string_view> distinct_;
    std::size_t count_ = 0;
    bool closesWithStop_ = false;
};

double score(const Opening& opening, const WindowWords& words, double durationSeconds,
             std::optional<int> fillers) {
    double score = opening.question ? 0.53 : 0.35;
    if (opening.hook) score += 0.14;
    if (opening.brief) score += 0.05;
    score += words.variety();
    if (words.closesWithStop()) score += 0.05;
    if (durationSeconds >= 25.0 && durationSeconds <= 45.0) {
        score += 0.1;
    } else if (durationSeconds >= 18.0 && durationSeconds <= 52.0) {
        score += 0.05;
    }
    if (fillers) score -= std::min(*fillers * 0.03, 0.2);
    return std::clamp(score, 0.0, 1.0);
}

std::vector<LineText> lineTexts(std::span<const TranscriptSegment* const> segments) {
    std::vector<LineText> lines;
    lines.reserve(segments.size());
    for (const TranscriptSegment* segment : segments)
        lines.emplace_back(segment->text);
    for (auto& line : lines)
        line.words = whitespaceSeparatedWords(line.lowered);
    return lines;
}

std::string titleOf(std::span<const TranscriptSegment* const> window) {
    std::string joined;
    for (std::size_t i = 0; i < std::min<std::size_t>(window.size(), 2); ++i) {
        for (const std::string_view word : whitespaceSeparatedWords(window[i]->text)) {
            if (!joined.empty()) joined += ' ';
            joined += word;
        }
    }
    if (characterCount(joined) <= kTitleMaxCharacters) return joined;
    std::string title(trimWhitespaceAndNewlines(firstCharacters(joined, kTitleCutCharacters)));
    return title + "…";
}

std::vector<const TranscriptSegment*> pointersTo(std::span<const TranscriptSegment> segments) {
    std::vector<const TranscriptSegment*> pointers;
    pointers.reserve(segments.size());
    for (const auto& segment : segments)
        pointers.push_back(&segment);
    return pointers;
}

double secondsBetween(const TranscriptSegment& first, const TranscriptSegment& last) {
    return last.end.subtracting(first.start).seconds();
}

// A window of the pool, from `first` to `last` included.
struct Window {
    std::size_t first = 0;
    std::size_t last = 0;
    double durationSeconds = 0.0;
    double score = 0.0;
};

}  // namespace

bool looksLikeHook(std::string_view text) {
    const std::string lowered = lowercased(text);
    return lowered.find('?') != std::string::npos || holdsHookWord(lowered);
}

std::string_view hookSummary(std::string_view firstText) {
    const std::string lowered = lowercased(firstText);
    if (lowered.find('?') != std::string::npos) return "Opens with a question";
    if (holdsHookWord(lowered)) return "Strong hook phrasing";
    return "Self-contained segment";
}

std::string makeTitle(std::span<const TranscriptSegment> window) {
    return titleOf(pointersTo(window));
}

double scoreWindow(std::span<const TranscriptSegment> window, const TranscriptDocument* transcript,
                   double durationSeconds) {
    if (window.empty()) return score(Opening(""), WindowWords{}, durationSeconds, std::nullopt);
    const auto lines = lineTexts(pointersTo(window));
    WindowWords words;
    for (const auto& line : lines)
        words.add(line);
    std::optional<int> fillers;
    if (transcript) {
        fillers = DisfluencyHitCounter(transcript).count(window.front().wordStartID, window.back().wordEndID);
    }
    return score(Opening(lines.front().lowered), words, durationSeconds, fillers);
}

std::vector<ShortsCandidate> propose(const SegmentDocument& segments, const TranscriptDocument* transcript,
                                     const std::optional<std::set<int>>& keptSegmentIDs, int maxCandidates,
                                     SecondsRange targetDuration) {
    std::vector<const TranscriptSegment*> pool;
    for (const auto& segment : segments.segments) {
        if (!keptSegmentIDs || keptSegmentIDs->contains(segment.id)) pool.push_back(&segment);
    }
    if (pool.empty() || maxCandidates <= 0) return {};

    const std::vector<LineText> lines = lineTexts(pool);
    const DisfluencyHitCounter hits(transcript);
    std::vector<Window> windows;
    WindowWords words;
    for (std::size_t first = 0; first < pool.size(); ++first) {
        const Opening opening(lines[first].lowered);
        words.clear();
        for (std::size_t last = first; last < pool.size(); ++last) {
            words.add(lines[last]);
            const double d = secondsBetween(*pool[first], *pool[last]);
            if (d < targetDuration.lower) continue;
            if (d > targetDuration.upper) break;
            std::optional<int> fillers;
            if (transcript) fillers = hits.count(pool[first]->wordStartID, pool[last]->wordEndID);
            windows.push_back({first, last, d, score(opening, words, d, fillers)});
        }
    }

    // Near scores tie and the longer window leads. That comparison isn't transitive over chains of near
    // scores, so a stable merge sort (which never reads out of its range) keeps the order reproducible.
    std::stable_sort(windows.begin(), windows.end(), [](const Window& a, const Window& b) {
        if (std::abs(a.score - b.score) > kNearScores) return a.score > b.score;
        return a.durationSeconds > b.durationSeconds;
    });

    std::vector<const Window*> chosen;
    const auto startOf = [&](const Window& w) { return pool[w.first]->start.seconds(); };
    const auto endOf = [&](const Window& w) { return pool[w.last]->end.seconds(); };
    for (const auto& window : windows) {
        if (chosen.size() >= static_cast<std::size_t>(maxCandidates)) break;
        const bool overlapsChosen = std::any_of(chosen.begin(), chosen.end(), [&](const Window* other) {
            const double shorter = std::min(window.durationSeconds, other->durationSeconds);
            if (!(shorter > 0.0)) return false;
            const double overlap =
                std::min(endOf(window), endOf(*other)) - std::max(startOf(window), startOf(*other));
            return overlap > kOverlapShare * shorter;
        });
        if (!overlapsChosen) chosen.push_back(&window);
    }

    std::vector<ShortsCandidate> candidates;
    candidates.reserve(chosen.size());
    for (const Window* window : chosen) {
        const std::span<const TranscriptSegment* const> members(pool.data() + window->first,
                                                                window->last - window->first + 1);
        ShortsCandidate candidate{.id = makeUUID(),
                                  .title = titleOf(members),
                                  .sourceStart = members.front()->start,
                                  .sourceEnd = members.back()->end,
                                  .score = window->score,
                                  .hookSummary = std::string(hookSummary(members.front()->text))};
        for (const TranscriptSegment* segment : members)
            candidate.segmentIDs.push_back(segment->id);
        candidates.push_back(std::move(candidate));
    }
    return candidates;
}

}  // namespace ShortsCandidateScorer

}  // namespace morvane::intelligence
