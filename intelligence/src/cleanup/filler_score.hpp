#pragma once

// The disfluency score from what the filler and retake rules know of a segment: its word and filler
// counts, its length in seconds and, when the audio was read, its RMS.

#include <algorithm>
#include <optional>

#include "segment_words.hpp"

namespace morvane::intelligence {

inline double fillerScore(SegmentWords::Counts counts, double durationSeconds,
                          const std::optional<double>& rms) {
    const int n = counts.words;
    const int f = counts.fillers;
    if (n == 0) return 1.0;  // a segment without words counts as wholly disfluent
    double score = static_cast<double>(f) / n;
    // A short utterance with any filler is mostly that filler.
    if (score <= 0.55 && f > 0 && durationSeconds < 1.2) score = 0.55;
    if (score <= 0.95 && f == n && n < 4) score = 0.95;
    // Filler mumbled quietly is more likely a false start than speech.
    constexpr double kQuietRMS = 0.015;
    const bool quiet = rms.value_or(kQuietRMS) < kQuietRMS;
    if (quiet && f > 0 && score <= 0.7) score = 0.7;
    return std::min(score, 1.0);
}

}  // namespace morvane::intelligence
