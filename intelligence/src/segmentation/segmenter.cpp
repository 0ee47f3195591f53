#include "morvane/intelligence/segmentation/segmenter.hpp"

#include <algorithm>
#include <cmath>

#include "morvane/intelligence/intelligence_error.hpp"

namespace morvane::intelligence {
namespace {

bool endsSentence(std::string_view text) {
    if (text.empty()) return false;
    const char last = text.back();
    return last == '.' || last == '!' || last == '?';
}

// One segment of the words [first, end).
TranscriptSegment makeSegment(int id, const std::vector<TranscriptWord>& words, std::size_t first,
                              std::size_t end) {
    TranscriptSegment segment{.id = id,
                              .start = words[first].start,
                              .end = words[end - 1].end,
                              .wordStartID = words[first].id,
                              .wordEndID = words[end - 1].id};
    for (std::size_t i = first; i < end; ++i) {
        if (i > first) segment.text += ' ';
        segment.text += words[i].text;
    }
    return segment;
}

// The bucket is the run of words [first, i): it closes before word i on a long gap, a long bucket or a
// sentence end. Every flush closes it whatever its length.
std::vector<TranscriptSegment> wordSegments(const std::vector<TranscriptWord>& words,
                                            const SegmentationOptions& options) {
    std::vector<TranscriptSegment> segments;
    std::size_t first = 0;
    const auto flush = [&](std::size_t end) {
        if (end == first) return;
        segments.push_back(makeSegment(static_cast<int>(segments.size()), words, first, end));
        first = end;
    };
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i == first) continue;
        const TranscriptWord& last = words[i - 1];
        const double gap = words[i].start.seconds() - last.end.seconds();
        const double length = last.end.seconds() - words[first].start.seconds();
        const bool ends = options.preferSentenceBoundaries && endsSentence(last.text);
        if (gap >= options.pauseGapSeconds || length >= options.maxSegmentDuration || ends) flush(i);
    }
    flush(words.size());
    return segments;
}

}  // namespace

std::vector<TranscriptSegment> Segmenter::snapBoundaries(std::vector<TranscriptSegment> segments,
                                                         std::span<const engine::SilenceSpan> silences,
                                                         double tolerance) {
    std::vector<double> boundaries;
    boundaries.reserve(silences.size() * 2);
    for (const auto& silence : silences) {
        for (double b : {silence.startSeconds, silence.endSeconds}) {
            if (std::isfinite(b)) boundaries.push_back(b);
        }
    }
    std::sort(boundaries.begin(), boundaries.end());
    boundaries.erase(std::unique(boundaries.begin(), boundaries.end()), boundaries.end());
    if (boundaries.empty()) return segments;

    for (auto& segment : segments) {
        const double s = segment.start.seconds();
        const double e = segment.end.seconds();
        double start = s;
        double end = e;
        // Both candidate sets are runs of the sorted boundaries, so a binary search finds the latest start
        // candidate and the earliest end candidate; each is then checked with the same comparisons a scan
        // of every boundary would make.
        const auto afterStart = std::partition_point(boundaries.begin(), boundaries.end(),
                                                     [&](double b) { return b <= s + tolerance; });
        if (afterStart != boundaries.begin() && s - *(afterStart - 1) <= tolerance) start = *(afterStart - 1);
        const auto endCandidate = std::partition_point(boundaries.begin(), boundaries.end(),
                                                       [&](double b) { return !(e - tolerance <= b); });
        if (endCandidate != boundaries.end() && *endCandidate - e <= tolerance) end = *endCandidate;

        // Two edges snapped past each other would turn the segment inside out.
        const double guardedStart = std::min(start, end - 0.01);
        const double guardedEnd = std::max(end, guardedStart + 0.01);
        segment.start = RationalTime::fromSeconds(guardedStart, RationalTime::secondsTimescale);
        segment.end = RationalTime::fromSeconds(guardedEnd, RationalTime::secondsTimescale);
    }
    return segments;
}

SegmentDocument Segmenter::segment(const TranscriptDocument& transcript,
                                   std::span<const engine::SilenceSpan> silences,
                                   const SegmentationOptions& options) {
    if (transcript.words.empty()) throw IntelligenceError::emptyTranscript();
    std::vector<TranscriptSegment> segments = wordSegments(transcript.words, options);
    if (options.snapToSilence && !silences.empty()) {
        segments = snapBoundaries(std::move(segments), silences, options.snapToleranceSeconds);
    }
    if (segments.empty()) throw IntelligenceError::emptySegments();
    const auto count = static_cast<int>(segments.size());
    return {.sourceTranscript = transcript.sourceURL, .segmentCount = count, .segments = std::move(segments)};
}

SegmentDocument Segmenter::segment(const TranscriptDocument& transcript,
                                   const std::filesystem::path& mediaURL, const SegmentationOptions& options,
                                   const engine::SilenceDetectionOptions& silenceOptions,
                                   const ProgressCallback& progress, std::stop_token stop) {
    std::vector<engine::SilenceSpan> silences;
    if (options.snapToSilence) {
        silences = engine::SilenceDetector::detect(mediaURL, silenceOptions, progress, std::move(stop));
    }
    return segment(transcript, silences, options);
}

}  // namespace morvane::intelligence
