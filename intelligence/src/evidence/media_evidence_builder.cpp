#include "morvane/intelligence/evidence/media_evidence_builder.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <exception>

#include "morvane/intelligence/segmentation/hierarchical_segmenter.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence::MediaEvidenceBuilder {
namespace {

constexpr std::size_t kTopicNoteCharacters = 80;

// "2025-03-01T09:30:00Z": the current time in ISO 8601, in UTC.
std::string nowISO8601() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return {text, length};
}

}  // namespace

MediaEvidenceDocument build(const std::filesystem::path& mediaURL, const TranscriptDocument& transcript,
                            const SegmentDocument& segments, int maxFrames, const ProgressCallback& progress,
                            std::stop_token stop) {
    std::vector<engine::SilenceSpan> silences;
    try {
        silences = engine::SilenceDetector::detect(mediaURL, {}, progress, std::move(stop));
    } catch (const OperationCancelled&) {
        throw;
    } catch (const std::exception&) {
        // Unreadable audio: the record goes on without silences.
    }
    return build(silences, transcript, segments, maxFrames);
}

MediaEvidenceDocument build(std::span<const engine::SilenceSpan> silences,
                            const TranscriptDocument& transcript, const SegmentDocument& segments,
                            int maxFrames) {
    MediaEvidenceDocument document{.sourceURL = transcript.sourceURL,
                                   .locale = transcript.locale,
                                   .durationSeconds = transcript.durationSeconds,
                                   .generatedAt = nowISO8601()};
    std::size_t longSilences = 0;
    for (const auto& silence : silences) {
        document.silenceSpans.push_back({silence.startSeconds, silence.endSeconds});
        if (silence.endSeconds - silence.startSeconds >= longSilenceSeconds) ++longSilences;
    }
    auto hierarchy = HierarchicalSegmenter::build(transcript, segments.segments);
    document.phraseSpans = std::move(hierarchy.phraseSpans);
    document.sentenceSpans = std::move(hierarchy.sentenceSpans);
    document.topicSpans = std::move(hierarchy.topicSpans);
    for (const auto& hit : transcript.disfluencyHits)
        document.disfluencyWordIDs.push_back(hit.wordID);
    for (const auto& word : transcript.words) {
        if (word.confidence && *word.confidence < lowConfidence)
            document.lowConfidenceWordIDs.push_back(word.id);
    }
    document.frameSamples = sampleFrames(document.durationSeconds, document.topicSpans, maxFrames);
    if (!document.lowConfidenceWordIDs.empty()) {
        document.notes.push_back(
            fmt::format("{} low-confidence words — review transcript before destructive cuts.",
                        document.lowConfidenceWordIDs.size()));
    }
    if (longSilences > 0)
        document.notes.push_back(fmt::format("{} silence spans ≥1.5s detected.", longSilences));
    return document;
}

std::vector<EvidenceFrameSample> sampleFrames(double durationSeconds,
                                              std::span<const EvidenceSpan> topicSpans, int maxFrames) {
    std::vector<EvidenceFrameSample> samples;
    if (!(durationSeconds > 0.0) || maxFrames < 1) return samples;
    samples.push_back({std::min(durationSeconds * 0.02, 1.0), EvidenceFrameRole::opener, std::nullopt});
    samples.push_back({durationSeconds / 2.0, EvidenceFrameRole::midpoint, std::nullopt});
    samples.push_back({std::max(durationSeconds - 1.0, 0.0), EvidenceFrameRole::closer, std::nullopt});
    const auto topics = static_cast<std::size_t>(std::max(maxFrames - 3, 0));
    for (std::size_t i = 0; i < std::min(topics, topicSpans.size()); ++i) {
        samples.push_back({topicSpans[i].startSeconds, EvidenceFrameRole::topicBoundary,
                           std::string(firstCharacters(topicSpans[i].text, kTopicNoteCharacters))});
    }
    if (samples.size() > static_cast<std::size_t>(maxFrames))
        samples.resize(static_cast<std::size_t>(maxFrames));
    return samples;
}

}  // namespace morvane::intelligence::MediaEvidenceBuilder
