#pragma once

// How many of a transcript's disfluency hits fall on words of an id range: a binary search over the hits'
// sorted word ids, so that scoring thousands of windows never scans the transcript once per window.

#include <algorithm>
#include <vector>

#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

class DisfluencyHitCounter {
  public:
    explicit DisfluencyHitCounter(const TranscriptDocument* transcript) {
        if (transcript == nullptr) return;
        ids_.reserve(transcript->disfluencyHits.size());
        for (const auto& hit : transcript->disfluencyHits)
            ids_.push_back(hit.wordID);
        std::sort(ids_.begin(), ids_.end());
    }

    // Hits whose word id lies between `firstWordID` and `lastWordID`, both included.
    [[nodiscard]] int count(int firstWordID, int lastWordID) const {
        if (lastWordID < firstWordID) return 0;
        const auto from = std::lower_bound(ids_.begin(), ids_.end(), firstWordID);
        return static_cast<int>(std::upper_bound(from, ids_.end(), lastWordID) - from);
    }

  private:
    std::vector<int> ids_;
};

}  // namespace morvane::intelligence
