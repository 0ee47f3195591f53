#pragma once

/// Single pictures of a video for analysis, upright and small enough to look at quickly: a sample is
/// the picture shown at a time, turned as the file says it should be shown and scaled to fit a square.
///
///     FrameSampler sampler(path, stop);                 // at most 1280x1280, 0.25 s of tolerance
///     if (sampler.isStill()) ...                        // a PNG or JPEG: one picture, no time
///     if (auto frame = sampler.frameNear(12.5))
///         analyse(frame->image, frame->seconds);        // the picture's own time, within 0.25 s of 12.5

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine {

/// How pictures are sampled.
struct FrameSamplerOptions {
    int maxDimension = 1280;         ///< the longer side of a sample at most, in pixels (never enlarged)
    double toleranceSeconds = 0.25;  ///< how far from the asked time a picture may lie, either side
};

/// One sampled picture and the time it is shown at.
struct SampledFrame {
    RGBAImage image;       ///< upright, opaque
    double seconds = 0.0;  ///< from the start of the video track
};

/// The pictures of one video file, sampled at increasing (or any) times.
class FrameSampler {
  public:
    /// Opens the first video track of `path`. Throws `EngineError::missingFile`, `noVideoTrack` and
    /// `readerFailed` with FFmpeg's reason.
    FrameSampler(const std::filesystem::path& path, std::stop_token stop, FrameSamplerOptions options = {});
    ~FrameSampler();
    FrameSampler(const FrameSampler&) = delete;
    FrameSampler& operator=(const FrameSampler&) = delete;

    /// Whether the file is a single still picture rather than a video.
    [[nodiscard]] bool isStill() const noexcept;
    /// The size of every sample: the upright picture scaled to fit `maxDimension`.
    [[nodiscard]] PixelSize sampleSize() const noexcept;

    /// The picture shown at `seconds`, or nothing when the nearest one lies further than the tolerance
    /// (past the end of the track, or across a gap). Throws `EngineError::readerFailed` or `decodeFailed`
    /// with FFmpeg's reason when the picture can't be decoded, and `OperationCancelled`.
    [[nodiscard]] std::optional<SampledFrame> frameNear(double seconds);

  private:
    struct Decoding;
    std::unique_ptr<Decoding> decoding_;
};

}  // namespace morvane::engine
