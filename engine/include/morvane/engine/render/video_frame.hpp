#pragma once

/// One rendered program frame. A frame that needed no compositing holds the decoded source picture as it
/// came from the decoder (planar YUV, not converted); any other holds the composited RGBA picture.
///
///     VideoFrame frame = renderer.frame(RationalTime::fromSeconds(12.5, 600));
///     frame.isPassthrough();          // true for a plain cut of a recording at the output size
///     RGBAImage picture = frame.toRGBA();
///     writePNG(picture, "frame.png");

#include <filesystem>
#include <memory>

#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine {

/// A decoded source picture; its contents are private to the engine's media layer.
struct DecodedPicture;

/// A program frame, shared cheaply by reference.
class VideoFrame {
  public:
    /// An empty frame (no picture).
    VideoFrame() = default;
    /// A composited picture.
    explicit VideoFrame(std::shared_ptr<const RGBAImage> image) noexcept;
    /// A source picture passed through untouched.
    explicit VideoFrame(std::shared_ptr<const DecodedPicture> picture) noexcept;

    /// Whether the frame holds no picture.
    [[nodiscard]] bool empty() const noexcept { return !image_ && !picture_; }
    /// Whether the frame is a decoded source picture, not converted.
    [[nodiscard]] bool isPassthrough() const noexcept { return picture_ != nullptr; }
    /// The picture's size in pixels.
    [[nodiscard]] PixelSize size() const noexcept;
    /// The composited picture; null for a passthrough frame.
    [[nodiscard]] const RGBAImage* image() const noexcept { return image_.get(); }
    /// The source picture; null for a composited frame.
    [[nodiscard]] const std::shared_ptr<const DecodedPicture>& picture() const noexcept { return picture_; }
    /// The picture as premultiplied RGBA: a copy of a composited one, or a conversion of a source picture.
    [[nodiscard]] RGBAImage toRGBA() const;

  private:
    std::shared_ptr<const RGBAImage> image_;
    std::shared_ptr<const DecodedPicture> picture_;
};

/// Writes `image` as an opaque 8-bit RGB PNG, laid over black (what a video frame shows where nothing is
/// drawn). Throws `EngineError::exportFailed` with FFmpeg's reason, or "Could not write <path>".
void writePNG(const RGBAImage& image, const std::filesystem::path& to);

/// Reads the first picture of an image (or video) file as premultiplied RGBA. Throws
/// `EngineError::missingFile`, `noVideoTrack` and `readerFailed` with FFmpeg's reason.
[[nodiscard]] RGBAImage readImage(const std::filesystem::path& from);

}  // namespace morvane::engine
