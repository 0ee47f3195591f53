#pragma once

// The words of a segment are the transcript's words with ids from its first to its last word id. Word ids
// rise with time, so a table sorted by id answers "how many words, how many fillers" with two binary
// searches instead of a scan of the whole transcript per segment. Counting doesn't depend on order, so
// the answer is the same for a transcript whose ids are out of order.

#include <vector>

#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

class SegmentWords {
  public:
    struct Counts {
        int words = 0;
        int fillers = 0;
    };

    explicit SegmentWords(const TranscriptDocument& transcript);

    [[nodiscard]] Counts counts(const TranscriptSegment& segment) const;

  private:
    std::vector<int> ids_;            // sorted
    std::vector<int> fillersBefore_;  // fillers among the first i entries of ids_
};

}  // namespace morvane::intelligence
