#pragma once

/// Passages of a long recording that stand alone as a vertical short, found without a model: every run of
/// consecutive segments whose length falls in a range is scored for a hook at its start, a good length and
/// clean speech, and the best ones that don't mostly overlap are kept.
///
///     auto candidates = ShortsCandidateScorer::propose(segments, &transcript, std::nullopt, 5, {15, 58});
///     candidates.front().title;          // "Here's the mistake everyone makes with audio. Record ..."
///     candidates.front().hookSummary;    // "Strong hook phrasing"
///     candidates.front().durationSeconds();

#include <array>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/json.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

/// A closed range of seconds.
struct SecondsRange {
    double lower = 0.0;
    double upper = 0.0;
    friend bool operator==(const SecondsRange&, const SecondsRange&) = default;
};

/// One passage that could become a short: consecutive segments of the source.
struct ShortsCandidate {
    std::string id;  ///< UUID, fresh for every proposal
    std::string title;
    std::vector<int> segmentIDs;  ///< the window's segments in order
    RationalTime sourceStart;     ///< the first segment's start
    RationalTime sourceEnd;       ///< the last segment's end
    double score = 0.0;           ///< 0 to 1
    std::string hookSummary;  ///< "Opens with a question", "Strong hook phrasing" or "Self-contained segment"

    /// sourceEnd - sourceStart in seconds, never below 0.
    [[nodiscard]] double durationSeconds() const noexcept;

    friend bool operator==(const ShortsCandidate&, const ShortsCandidate&) = default;
};

// JSON: keys are the field names; times as {"value","timescale"} records.
void to_json(Json& json, const ShortsCandidate& candidate);
void fromJson(const JsonReader& reader, ShortsCandidate& candidate);

namespace ShortsCandidateScorer {

/// Words that make an opening line grab attention, matched as lowered containment.
inline constexpr std::array<std::string_view, 16> hookWords{
    "here's", "here is", "why",  "how",   "what", "secret", "mistake", "truth",
    "never",  "always",  "best", "worst", "stop", "start",  "watch",   "listen",
};

/// What the Extract Shorts sheet asks for: at most five passages of 15 to 58 seconds.
inline constexpr int sheetMaxCandidates = 5;
inline constexpr SecondsRange sheetTargetDuration{15.0, 58.0};

/// Whether a line opens like a hook: it asks a question or holds a hook word.
[[nodiscard]] bool looksLikeHook(std::string_view text);

/// The best passages of `segments`, best first. Only segments in `keptSegmentIDs` take part when it is
/// given (a window then runs over consecutive kept segments, and the gaps between them count towards its
/// length). Scores within 0.01 of each other count as equal and the longer passage leads; a passage is
/// passed over when it overlaps one already chosen by more than 55 % of the shorter of the two. At most
/// `maxCandidates`. `transcript`, when given, supplies the fillers that lower a score.
[[nodiscard]] std::vector<ShortsCandidate> propose(const SegmentDocument& segments,
                                                   const TranscriptDocument* transcript,
                                                   const std::optional<std::set<int>>& keptSegmentIDs,
                                                   int maxCandidates, SecondsRange targetDuration);

/// The score of consecutive segments lasting `durationSeconds` (from the first start to the last end),
/// 0 to 1: a question or a hook word in the first line, a short first line, varied words, a closing full
/// stop and a length of 25 to 45 s (or, less so, 18 to 52 s) raise it; fillers lower it.
[[nodiscard]] double scoreWindow(std::span<const TranscriptSegment> window,
                                 const TranscriptDocument* transcript, double durationSeconds);

/// The first two lines (or the one) with white space collapsed, cut to 69 characters and "…" beyond 72.
[[nodiscard]] std::string makeTitle(std::span<const TranscriptSegment> window);

/// How a passage opens, for people: "Opens with a question", "Strong hook phrasing" or
/// "Self-contained segment".
[[nodiscard]] std::string_view hookSummary(std::string_view firstText);

}  // namespace ShortsCandidateScorer

}  // namespace morvane::intelligence
