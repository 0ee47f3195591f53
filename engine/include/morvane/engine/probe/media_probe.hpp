#pragma once

/// What a media file is: its length, its first picture and sound tracks, and whether its frames come at a
/// steady rate. Probing demuxes the picture track once without decoding it.
///
///     MediaProbeReport report = MediaProbe::probe("talk.mp4");
///     report.durationSeconds;                    // 612.48
///     report.video->naturalSize;                 // "1280x720"
///     report.vfr->isLikelyVFR;                   // false for a camera's recording
///     FrameDurationGuess::from(report);          // "1001/30000" at 29.97 fps

#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// One track of a file, for display and for the project's frame timing.
struct TrackSummary {
    std::string kind;                             ///< "video" or "audio"
    std::vector<std::string> formatDescriptions;  ///< "h264 (High)", "1280x720", "yuv420p", "48000 Hz"...
    std::optional<double> nominalFrameRate;       ///< frames a second over the whole track (pictures only)
    std::optional<double> estimatedFrameRate;     ///< frames over the time they span (pictures only)
    std::optional<std::string> naturalSize;       ///< "1280x720", as stored (before any turn)
    std::optional<std::string> timecode;          ///< the starting timecode, "01:00:00:00", when tagged

    friend bool operator==(const TrackSummary&, const TrackSummary&) = default;
};

/// How steadily the frames of a picture track follow one another.
struct VFRAnalysis {
    int sampleCount = 0;                     ///< frames read
    double nominalFrameDurationSeconds = 0;  ///< 1 / nominal rate (1 when there is no rate)
    double minDeltaSeconds = 0;              ///< smallest gap between consecutive frames
    double maxDeltaSeconds = 0;              ///< largest gap
    double medianDeltaSeconds = 0;           ///< the gap at index count / 2 of the sorted gaps
    int uniqueDeltaCount = 0;                ///< distinct gaps, at a microsecond's grain
    bool isLikelyVFR = false;
    std::string notes;  ///< one line for people

    friend bool operator==(const VFRAnalysis&, const VFRAnalysis&) = default;
};

/// The facts of one media file.
struct MediaProbeReport {
    std::string url;             ///< the file's absolute "file://" URL
    std::string duration;        ///< "value/timescale", as exact as the container states it
    double durationSeconds = 0;  ///< 0 or less when the container doesn't say; callers check
    std::optional<TrackSummary> video;
    std::optional<TrackSummary> audio;
    std::optional<VFRAnalysis> vfr;  ///< with a picture track
    double rotationDegrees = 0;      ///< clockwise turn that shows the picture upright: 0, 90, 180, 270

    /// Width and height of the picture as stored; 0 × 0 without one.
    [[nodiscard]] std::pair<int, int> videoNaturalSize() const;

    friend bool operator==(const MediaProbeReport&, const MediaProbeReport&) = default;
};

void to_json(Json& json, const TrackSummary& summary);
void to_json(Json& json, const VFRAnalysis& analysis);
/// The report's fields under their own names; absent tracks and analyses are left out.
void to_json(Json& json, const MediaProbeReport& report);

namespace MediaProbe {

/// Reads `file`'s container, its first picture and sound tracks and its frame timing. Throws
/// `EngineError::missingFile` when nothing is at `file`, `readerFailed` with FFmpeg's reason when it isn't
/// media or can't be read to its end, and `OperationCancelled` when `stop` is requested.
[[nodiscard]] MediaProbeReport probe(const std::filesystem::path& file, std::stop_token stop = {});

}  // namespace MediaProbe

namespace VFRAnalyzer {

/// The timing of frames presented at `presentationTimes` (in any order: they are sorted first, since
/// files store frames in decoding order), against `nominalFrameRate` frames a second. Gaps of zero or
/// less are ignored. Variable when at least 4 distinct gaps spread by more than the larger of 0.5 ms and
/// 5% of the nominal frame duration.
[[nodiscard]] VFRAnalysis analyze(std::span<const RationalTime> presentationTimes, double nominalFrameRate);

}  // namespace VFRAnalyzer

namespace FrameDurationGuess {

/// The project's frame duration for a frame rate, as a fraction: "1001/30000" near 29.97 (and when
/// nothing better is known), "1001/24000" near 23.976, "1001/60000" near 59.94, "1/" + the rate for
/// whole rates.
[[nodiscard]] std::string fromRate(std::optional<double> framesPerSecond);

/// The frame duration for a probed file, from its nominal rate, else its measured one.
[[nodiscard]] std::string from(const MediaProbeReport& report);

}  // namespace FrameDurationGuess

}  // namespace morvane::engine
