#pragma once

// What `segment` and `classify` start from: a transcript file and, when given, its recording, whose
// pauses the segment edges snap to.

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/segmentation/segmenter.hpp"

namespace morvane::cli {

struct SegmentedTranscript {
    intelligence::TranscriptDocument transcript;
    intelligence::SegmentDocument segments;
    std::optional<std::vector<engine::SilenceSpan>> silences;  ///< the recording's pauses, when one was given
};

/// Reads `path` and segments it, snapped to the pauses of `media` when given.
inline SegmentedTranscript segmentTranscriptFile(const std::string& path,
                                                 const std::optional<std::string>& media,
                                                 const ProgressCallback& progress, std::stop_token stop) {
    SegmentedTranscript out;
    const Json json = parseJson(readWholeFile(path), path);
    out.transcript = JsonReader(json, path).get<intelligence::TranscriptDocument>();
    std::vector<engine::SilenceSpan> silences;
    if (media) {
        silences = engine::SilenceDetector::detect(*media, {}, progress, std::move(stop));
        out.silences = silences;
    }
    out.segments = intelligence::Segmenter::segment(out.transcript, silences);
    return out;
}

}  // namespace morvane::cli
