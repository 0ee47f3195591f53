#pragma once

/// A prediction of an export's file size and encode time, made before anything is rendered, for the
/// export panel.
///
///     auto estimate = ExportEstimator::estimate({.durationSeconds = 600, .outputWidth = 1920,
///                                                .outputHeight = 1080, .sourceWidth = 1920,
///                                                .sourceHeight = 1080, .clipCount = 40});
///     estimate.fileSizeLabel();     // "Est. file size ~ 614.4 MB"
///     estimate.encodeTimeLabel();   // "Est. encode ~ a few seconds (likely passthrough)"
///
/// Rates are modelled, not measured: the video rate grows with the picture's area to the power 0.75
/// (ProRes linearly), and the encode speed is a multiple of real time per codec, lower when scaling.

#include <cstdint>
#include <optional>
#include <string>

#include "morvane/engine/export/export_settings.hpp"

namespace morvane::engine {

/// What an export is expected to cost.
struct ExportEstimate {
    double durationSeconds = 0.0;         ///< length of what is exported
    std::int64_t estimatedFileBytes = 0;  ///< predicted size
    double estimatedEncodeSeconds = 0.0;  ///< predicted wall-clock time
    double videoMegabitsPerSecond = 0.0;  ///< predicted video rate
    bool needsReencode = true;            ///< false when the export is likely a copy of the source

    /// "Est. file size ~ 12.3 MB" (decimal megabytes with one decimal, gigabytes with two from 1 GB on).
    [[nodiscard]] std::string fileSizeLabel() const;
    /// "Est. encode ~ 35–70 sec", "Est. encode ~ 2–4 min", "Est. encode ~ about 1 min", or for a likely
    /// copy "Est. encode ~ a few seconds (likely passthrough)".
    [[nodiscard]] std::string encodeTimeLabel() const;
    /// "Export length 1:05" or "Export length 1:02:03".
    [[nodiscard]] std::string durationLabel() const;

    friend bool operator==(const ExportEstimate&, const ExportEstimate&) = default;
};

/// What the estimator reads.
struct ExportEstimateInput {
    double durationSeconds = 0.0;
    int outputWidth = 1920;
    int outputHeight = 1080;
    ExportVideoSettings videoSettings;
    std::optional<int> sourceWidth;  ///< the primary source's picture, once known
    std::optional<int> sourceHeight;
    int clipCount = 0;          ///< clips and gaps on the storyline
    int captionBurnInJobs = 0;  ///< text pictures to render before encoding
};

namespace ExportEstimator {

/// The predicted size and time of an export.
[[nodiscard]] ExportEstimate estimate(const ExportEstimateInput& input);

/// The predicted video rate in Mbps for a picture of `megapixels`.
[[nodiscard]] double videoBitrateMbps(ExportVideoCodec codec, ExportVideoBitrate bitrate, double megapixels);

/// "35–70 sec", "2–4 min", "about 1 min", "about 3 min": a span of seconds as the panel shows it.
[[nodiscard]] std::string encodeRangeText(double lowSeconds, double highSeconds);

}  // namespace ExportEstimator

}  // namespace morvane::engine
