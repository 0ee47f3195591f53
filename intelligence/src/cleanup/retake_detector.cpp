#include "morvane/intelligence/cleanup/retake_detector.hpp"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <span>
#include <unordered_map>

#include "filler_score.hpp"
#include "morvane/engine/support/fatal.hpp"
#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "rule_run.hpp"
#include "segment_words.hpp"

namespace morvane::intelligence::RetakeDetector {
namespace {

using Codes = std::vector<std::uint32_t>;

// The characters (grapheme clusters) of texts as numbers, so that edit distance compares numbers: a
// character of one code point is that code point; one of several (a letter and its combining marks) gets
// a number past the code space, the same for every equal character seen by this encoder. Characters are
// compared in composed form, so "é" typed as one code point or as "e" and an accent is one character.
class CharacterCodes {
  public:
    Codes encode(std::string_view text) {
        Codes codes;
        if (std::all_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
            codes.assign(text.begin(), text.end());
            return codes;
        }
        if (!iterator_) {
            UErrorCode status = U_ZERO_ERROR;
            iterator_.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
            MORVANE_ASSERT(iterator_ && U_SUCCESS(status), "ICU has no character break iterator");
        }
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
        MORVANE_ASSERT(nfc != nullptr && U_SUCCESS(status), "ICU has no NFC normalizer");
        const auto unicode = nfc->normalize(
            icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size()))),
            status);
        iterator_->setText(unicode);
        int32_t start = iterator_->first();
        for (int32_t end = iterator_->next(); end != icu::BreakIterator::DONE;
             start = end, end = iterator_->next()) {
            const UChar32 first = unicode.char32At(start);
            if (start + U16_LENGTH(first) == end) {
                codes.push_back(static_cast<std::uint32_t>(first));
                continue;
            }
            std::string cluster;
            unicode.tempSubStringBetween(start, end).toUTF8String(cluster);
            const auto [found, inserted] = clusters_.try_emplace(
                std::move(cluster), kFirstClusterCode + static_cast<std::uint32_t>(clusters_.size()));
            codes.push_back(found->second);
        }
        return codes;
    }

  private:
    static constexpr std::uint32_t kFirstClusterCode = 0x110000;
    std::unique_ptr<icu::BreakIterator> iterator_;
    std::unordered_map<std::string, std::uint32_t> clusters_;
};

// The edit distance of `a` and `b` when it is at most `bound`; otherwise some value above `bound`. Only
// the cells within `bound` of the diagonal can lie on such a path, and a row whose cells all exceed the
// bound ends the search.
std::size_t boundedDistance(std::span<const std::uint32_t> a, std::span<const std::uint32_t> b,
                            std::size_t bound) {
    if (a.size() > b.size()) std::swap(a, b);
    const std::size_t n = a.size();
    const std::size_t m = b.size();
    const std::size_t over = bound + 1;
    if (m - n > bound) return over;
    std::vector<std::size_t> previous(m + 2, over);
    std::vector<std::size_t> current(m + 2, over);
    for (std::size_t j = 0; j <= std::min(m, bound); ++j)
        previous[j] = j;
    for (std::size_t i = 1; i <= n; ++i) {
        const std::size_t lo = i > bound ? i - bound : 0;
        const std::size_t hi = std::min(m, i + bound);
        if (lo > 0) current[lo - 1] = over;
        std::size_t rowMin = over;
        for (std::size_t j = lo; j <= hi; ++j) {
            std::size_t value = i;
            if (j > 0) {
                value = previous[j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0);
                value = std::min({value, previous[j] + 1, current[j - 1] + 1});
            }
            current[j] = std::min(value, over);
            rowMin = std::min(rowMin, current[j]);
        }
        current[hi + 1] = over;
        if (rowMin > bound) return over;
        std::swap(previous, current);
    }
    return previous[m];
}

// The largest distance at which two texts whose longer one has `m` characters are still alike.
std::size_t maxAlikeDistance(std::size_t m) {
    std::size_t d = std::min(m, static_cast<std::size_t>(0.22 * static_cast<double>(m)) + 2);
    while (d > 0 && !(1.0 - static_cast<double>(d) / static_cast<double>(m) >= similarityThreshold))
        --d;
    return d;
}

bool similarCodes(const Codes& a, const Codes& b) {
    if (a.empty() || b.empty() || a == b) return a == b;
    const std::size_t m = std::max(a.size(), b.size());
    const std::size_t bound = maxAlikeDistance(m);
    return boundedDistance(a, b, bound) <= bound;
}

// Indices of `segments` in groups of takes, as `retakeClusters` describes them.
std::vector<std::vector<std::size_t>> clusterIndices(const SegmentDocument& segments) {
    const auto& list = segments.segments;
    CharacterCodes encoder;
    std::vector<Codes> codes;
    codes.reserve(list.size());
    for (const auto& segment : list)
        codes.push_back(encoder.encode(normalize(segment.text)));

    // A candidate joins segment i's cluster when it resembles i itself; groups sharing a segment merge.
    std::vector<std::size_t> parent(list.size());
    std::iota(parent.begin(), parent.end(), std::size_t{0});
    const auto root = [&](std::size_t i) {
        while (parent[i] != i)
            i = parent[i] = parent[parent[i]];
        return i;
    };
    std::vector<std::size_t> starts;  // segments whose own cluster has two or more members, in order
    for (std::size_t i = 0; i < list.size(); ++i) {
        bool clustered = false;
        const std::size_t last = std::min(list.size() - 1, i + comparisonWindow);
        for (std::size_t j = i + 1; j <= last; ++j) {
            if (!similarCodes(codes[i], codes[j])) continue;
            clustered = true;
            const std::size_t a = root(i);
            const std::size_t b = root(j);
            if (a != b) parent[std::max(a, b)] = std::min(a, b);
        }
        if (clustered) starts.push_back(i);
    }

    // Groups in the order of their first cluster; each group's members in ascending id order.
    std::vector<std::vector<std::size_t>> groups;
    std::unordered_map<std::size_t, std::size_t> groupOfRoot;
    for (std::size_t start : starts)
        groupOfRoot.try_emplace(root(start), groupOfRoot.size());
    groups.resize(groupOfRoot.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto found = groupOfRoot.find(root(i));
        if (found != groupOfRoot.end()) groups[found->second].push_back(i);
    }
    for (auto& group : groups) {
        std::stable_sort(group.begin(), group.end(),
                         [&](std::size_t a, std::size_t b) { return list[a].id < list[b].id; });
    }
    return groups;
}

}  // namespace

std::string normalize(std::string_view text) {
    const std::string lowered = lowercased(text);
    const auto* s = reinterpret_cast<const uint8_t*>(lowered.data());
    const auto length = static_cast<int32_t>(lowered.size());
    std::string normalized;
    normalized.reserve(lowered.size());
    bool pieceOpen = false;
    for (int32_t i = 0; i < length;) {
        const int32_t begin = i;
        UChar32 c = 0;
        U8_NEXT(s, i, length, c);
        if (c < 0 || !isAlphanumeric(static_cast<char32_t>(c))) {
            pieceOpen = false;
            continue;
        }
        if (!pieceOpen && !normalized.empty()) normalized += ' ';
        pieceOpen = true;
        normalized.append(lowered, static_cast<std::size_t>(begin), static_cast<std::size_t>(i - begin));
    }
    return normalized;
}

std::size_t levenshtein(std::string_view a, std::string_view b) {
    CharacterCodes encoder;
    const Codes x = encoder.encode(a);
    const Codes y = encoder.encode(b);
    return boundedDistance(x, y, std::max(x.size(), y.size()));
}

bool isSimilar(std::string_view a, std::string_view b) {
    CharacterCodes encoder;
    return similarCodes(encoder.encode(normalize(a)), encoder.encode(normalize(b)));
}

std::vector<std::vector<TranscriptSegment>> retakeClusters(const SegmentDocument& segments) {
    std::vector<std::vector<TranscriptSegment>> clusters;
    for (const auto& group : clusterIndices(segments)) {
        auto& cluster = clusters.emplace_back();
        for (std::size_t i : group)
            cluster.push_back(segments.segments[i]);
    }
    return clusters;
}

double audioStability(const TranscriptSegment& segment, const engine::PCMBuffer* pcm) {
    return pcm != nullptr ? SegmentAudioMeter::stability(segment, *pcm) : 0.5;
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
    const auto& list = segments.segments;
    MORVANE_ASSERT(!evidence.levels || evidence.levels->size() == list.size(),
                   "evidence levels were read for another segment document");
    const SegmentWords words(transcript);
    const auto quality = [&](std::size_t i) {
        const SegmentAudioLevel level = evidence.levels ? (*evidence.levels)[i] : SegmentAudioLevel{};
        const double score =
            fillerScore(words.counts(list[i]), list[i].end.seconds() - list[i].start.seconds(), level.rms);
        return (1.0 - score) * 0.65 + level.stability * 0.35;
    };

    enum class Role { none, best, duplicate };
    std::vector<Role> roles(list.size(), Role::none);
    for (const auto& group : clusterIndices(segments)) {
        std::size_t best = group.front();
        double bestQuality = quality(best);
        for (std::size_t k = 1; k < group.size(); ++k) {
            // Strictly better only: on a tie the earlier take stays.
            const double candidate = quality(group[k]);
            if (bestQuality < candidate) {
                best = group[k];
                bestQuality = candidate;
            }
        }
        for (std::size_t i : group)
            roles[i] = i == best ? Role::best : Role::duplicate;
    }

    std::vector<SegmentClassification> verdicts;
    verdicts.reserve(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        switch (roles[i]) {
            case Role::none:
                verdicts.push_back({list[i].id, true, 0.95, std::nullopt});
                break;
            case Role::best:
                verdicts.push_back({list[i].id, true, 0.92, "best_retake"});
                break;
            case Role::duplicate:
                verdicts.push_back({list[i].id, false, 0.88, "duplicate_retake"});
                break;
        }
    }
    return RuleRun::make(segments, instruction, "deterministic:retake_detector", std::move(verdicts));
}

}  // namespace morvane::intelligence::RetakeDetector
