#include "morvane/engine/export/export_estimator.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "morvane/engine/support/fatal.hpp"

namespace morvane::engine {
namespace {

// A source this many pixels off the output in either direction still counts as the same size.
constexpr int kSameSizeSlackPixels = 2;

double encodeSpeed(ExportVideoCodec codec, bool scaling) {
    switch (codec) {
        case ExportVideoCodec::hevc:
            return scaling ? 4.0 : 7.0;
        case ExportVideoCodec::h264:
            return scaling ? 8.0 : 12.0;
        case ExportVideoCodec::proRes422:
            return 18.0;
        case ExportVideoCodec::gif:
            return 3.0;
    }
    return 8.0;
}

}  // namespace

std::string ExportEstimate::fileSizeLabel() const {
    const double bytes = static_cast<double>(std::max<std::int64_t>(estimatedFileBytes, 0));
    if (bytes >= 1e9) return fmt::format("Est. file size ~ {:.2f} GB", bytes / 1e9);
    return fmt::format("Est. file size ~ {:.1f} MB", bytes / 1e6);
}

std::string ExportEstimate::encodeTimeLabel() const {
    if (!needsReencode) return "Est. encode ~ a few seconds (likely passthrough)";
    const double low = std::max(estimatedEncodeSeconds * 0.7, 5.0);
    const double high = std::max(low + 5.0, estimatedEncodeSeconds * 1.4);
    return "Est. encode ~ " + ExportEstimator::encodeRangeText(low, high);
}

std::string ExportEstimate::durationLabel() const {
    const auto total =
        std::max<long long>(std::llround(std::isfinite(durationSeconds) ? durationSeconds : 0.0), 0);
    if (total >= 3600)
        return fmt::format("Export length {}:{:02}:{:02}", total / 3600, (total / 60) % 60, total % 60);
    return fmt::format("Export length {}:{:02}", total / 60, total % 60);
}

std::string ExportEstimator::encodeRangeText(double lowSeconds, double highSeconds) {
    const long long low = std::llround(lowSeconds);
    const long long high = std::llround(highSeconds);
    if (high <= 59) return fmt::format("{}–{} sec", low, high);
    const long long lowMinutes = std::llround(lowSeconds / 60.0);
    const long long highMinutes = std::llround(highSeconds / 60.0);
    const long long shownLow = std::max(lowMinutes, 1LL);
    if (shownLow < highMinutes) return fmt::format("{}–{} min", shownLow, highMinutes);
    if (lowMinutes < 2) return "about 1 min";
    return fmt::format("about {} min", lowMinutes);
}

double ExportEstimator::videoBitrateMbps(ExportVideoCodec codec, ExportVideoBitrate bitrate,
                                         double megapixels) {
    const double scale = std::max(megapixels, 0.3) / 2.07;
    const double curve = std::pow(scale, 0.75);
    switch (codec) {
        case ExportVideoCodec::hevc:
            return curve * estimatorBaseMbps(bitrate) * 0.65;
        case ExportVideoCodec::h264:
            return curve * estimatorBaseMbps(bitrate);
        case ExportVideoCodec::proRes422:
            return scale * 147.0;
        case ExportVideoCodec::gif:
            return curve * 1.2;
    }
    return curve * estimatorBaseMbps(bitrate);
}

ExportEstimate ExportEstimator::estimate(const ExportEstimateInput& input) {
    const int width = std::max(input.outputWidth, 1);
    const int height = std::max(input.outputHeight, 1);
    const double megapixels = static_cast<double>(width) * height / 1e6;
    const bool sourceKnown = input.sourceWidth && input.sourceHeight;
    const bool sizeMatchesSource = sourceKnown &&
                                   std::abs(*input.sourceWidth - width) <= kSameSizeSlackPixels &&
                                   std::abs(*input.sourceHeight - height) <= kSameSizeSlackPixels;
    const bool needsScaling = !sizeMatchesSource;
    const ExportVideoSettings& video = input.videoSettings;
    const bool likelyPassthrough = video.codec == ExportVideoCodec::h264 &&
                                   video.bitrate == ExportVideoBitrate::automatic && sizeMatchesSource &&
                                   !needsScaling && input.captionBurnInJobs < 1;
    const double duration = std::max(input.durationSeconds, 0.1);

    const double videoMbps = videoBitrateMbps(video.codec, video.bitrate, megapixels);
    const double audioMbps = video.codec == ExportVideoCodec::proRes422 ? 1.5 : 0.192;
    const double bytes = duration * ((audioMbps + videoMbps) * 1e6 * 0.125);
    if (!(bytes < static_cast<double>(std::numeric_limits<std::int64_t>::max())))
        MORVANE_FATAL("export size estimate beyond 64 bits");

    double seconds = 0.0;
    if (likelyPassthrough) {
        seconds = std::min(duration * 0.02 + 2.0 + input.clipCount * 0.01, 12.0);
    } else {
        double speed = encodeSpeed(video.codec, needsScaling);
        if (megapixels < 1.0) speed *= 1.2;
        if (megapixels > 6.0) speed *= 0.45;
        if (needsScaling && sourceKnown) {
            const double sourceMegapixels =
                static_cast<double>(*input.sourceWidth) * *input.sourceHeight / 1e6;
            if (sourceMegapixels > 0.0 && megapixels / sourceMegapixels >= 4.0) speed *= 0.65;
        }
        seconds = std::max(input.clipCount, 0) * 0.012 + 3.0 + duration / std::max(speed, 1.5);
    }
    if (input.captionBurnInJobs >= 1) seconds += input.captionBurnInJobs * 0.06 + 2.0;

    return {.durationSeconds = duration,
            .estimatedFileBytes = static_cast<std::int64_t>(bytes),
            .estimatedEncodeSeconds = seconds,
            .videoMegabitsPerSecond = videoMbps,
            .needsReencode = !likelyPassthrough};
}

}  // namespace morvane::engine
