#include "segment_words.hpp"

#include <algorithm>
#include <utility>

#include "morvane/intelligence/cleanup/disfluency_detector.hpp"

namespace morvane::intelligence {

SegmentWords::SegmentWords(const TranscriptDocument& transcript) {
    std::vector<std::pair<int, bool>> words;
    words.reserve(transcript.words.size());
    for (const auto& word : transcript.words)
        words.emplace_back(word.id, DisfluencyDetector::isFiller(word.text));
    std::stable_sort(words.begin(), words.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    ids_.reserve(words.size());
    fillersBefore_.reserve(words.size() + 1);
    fillersBefore_.push_back(0);
    for (const auto& [id, filler] : words) {
        ids_.push_back(id);
        fillersBefore_.push_back(fillersBefore_.back() + (filler ? 1 : 0));
    }
}

SegmentWords::Counts SegmentWords::counts(const TranscriptSegment& segment) const {
    if (segment.wordStartID > segment.wordEndID) return {};
    const auto first = std::lower_bound(ids_.begin(), ids_.end(), segment.wordStartID) - ids_.begin();
    const auto end = std::upper_bound(ids_.begin(), ids_.end(), segment.wordEndID) - ids_.begin();
    return {static_cast<int>(end - first),
            fillersBefore_[static_cast<std::size_t>(end)] - fillersBefore_[static_cast<std::size_t>(first)]};
}

}  // namespace morvane::intelligence
