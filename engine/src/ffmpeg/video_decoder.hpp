#pragma once

// The first video track of a media file, decoded picture by picture, for a renderer that asks for the
// picture shown at a time. Asking in increasing order decodes sequentially; a jump backwards, or forward
// past a key frame, seeks first. Stills (a PNG, a JPEG) decode once and answer every time.
//
//     VideoDecoder decoder(path, stop);
//     auto picture = decoder.pictureAt(12.5);   // the frame whose time is the last at or before 12.5 s

#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/ffmpeg_ptr.hpp"

namespace morvane::engine::ffmpeg {

class VideoDecoder {
  public:
    /// Opens the first video track of `path`. Throws `EngineError::missingFile`, `noVideoTrack`, and
    /// `readerFailed` with FFmpeg's reason.
    VideoDecoder(const std::filesystem::path& path, std::stop_token stop);
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    /// The picture shown at `seconds` from the start of the track: the last whose time is at or before it
    /// (within 20 µs), the first before the first, the last after the end. Throws `readerFailed` with
    /// FFmpeg's reason and `OperationCancelled`.
    [[nodiscard]] std::shared_ptr<const DecodedPicture> pictureAt(double seconds);

    /// Whether answering `seconds` would decode on from the current position rather than seek.
    [[nodiscard]] bool reachesWithoutSeeking(double seconds) const noexcept;
    /// The time of the picture last handed out; negative before any.
    [[nodiscard]] double position() const noexcept;

    [[nodiscard]] int width() const noexcept;
    [[nodiscard]] int height() const noexcept;
    [[nodiscard]] bool isStill() const noexcept { return still_; }
    /// The clockwise turn that shows the pictures upright: 0, 90, 180 or 270.
    [[nodiscard]] double rotationDegrees() const noexcept;

  private:
    bool decodeNext();  // into next_; false at the end of the track
    void seekTo(double seconds);
    [[nodiscard]] double pictureSeconds(const AVFrame& frame) const noexcept;

    std::stop_token stop_;  // before format_: the demuxer's interrupt callback points at it
    std::string name_;
    InputFormatPtr format_;
    int stream_ = -1;
    double timeBase_ = 0.0;
    std::int64_t startTime_ = 0;
    bool still_ = false;
    CodecContextPtr codec_;
    PacketPtr packet_;
    std::shared_ptr<const DecodedPicture> current_;
    std::shared_ptr<const DecodedPicture> next_;
    bool draining_ = false;
    bool ended_ = false;
    int consecutiveErrors_ = 0;
};

}  // namespace morvane::engine::ffmpeg
