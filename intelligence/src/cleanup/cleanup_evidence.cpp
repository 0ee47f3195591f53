#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"

#include <exception>

#include "segment_level_stream.hpp"

namespace morvane::intelligence {
namespace {

// Runs `read`, turning any failure but a stop into "no evidence".
template <class Read>
auto orNothing(Read&& read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const OperationCancelled&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Silences and levels from one decode: the track is read at 48 kHz for the levels and converted beside
// that to 44.1 kHz for the silences, each rate exactly as a reader of its own would see it.
CleanupEvidence readBoth(const SegmentDocument& segments, const std::filesystem::path& mediaURL,
                         const ProgressCallback& progress, std::stop_token stop) {
    engine::PCMStream stream(mediaURL, SegmentAudioMeter::sampleRate, std::move(stop));
    engine::SilenceScanner silences(CleanupEvidence::silenceOptions());
    stream.alsoAtRate(engine::SilenceScanner::sampleRate,
                      [&](std::span<const float> block) { silences.process(block); });
    SegmentLevelStream levels(segments.segments, SegmentAudioMeter::sampleRate);
    StreamProgress share(progress, stream.expectedSamples());
    for (auto block = stream.read(); !block.empty(); block = stream.read()) {
        levels.process(block);
        share.advance(block.size());
    }
    share.finish();
    return {.silences = silences.finish(), .levels = levels.finish()};
}

}  // namespace

CleanupEvidence CleanupEvidence::read(const SegmentDocument& segments,
                                      const std::optional<std::filesystem::path>& mediaURL,
                                      const CleanupEvidenceNeeds& needs, const ProgressCallback& progress,
                                      std::stop_token stop) {
    if (!mediaURL || segments.segments.empty() || !(needs.silences || needs.levels)) return {};
    if (needs.silences && needs.levels) {
        return orNothing([&] { return readBoth(segments, *mediaURL, progress, stop); })
            .value_or(CleanupEvidence{});
    }
    CleanupEvidence evidence;
    if (needs.silences) {
        evidence.silences =
            orNothing([&] {
                return engine::SilenceDetector::detect(*mediaURL, silenceOptions(), progress, stop);
            }).value_or(std::vector<engine::SilenceSpan>{});
    } else if (needs.levels) {
        evidence.levels = orNothing(
            [&] { return SegmentAudioMeter::measure(segments.segments, *mediaURL, progress, stop); });
    }
    return evidence;
}

}  // namespace morvane::intelligence
