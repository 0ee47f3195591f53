#pragma once

// Animated GIFs from RGB pictures, in two passes so that nothing but one palette is held: the first pass
// shows every picture to FFmpeg's palette generator, which keeps only colour statistics; the second maps
// each picture to that palette with dithering, encodes it and writes it. The caller makes its pictures
// twice, in the same order.

#include <filesystem>

#include "ffmpeg/ffmpeg_ptr.hpp"
#include "morvane/engine/render/rgba_image.hpp"

struct AVFilterGraph;
struct AVFilterContext;

namespace morvane::engine::ffmpeg {

/// A filter graph that owns its filters.
struct FilterGraphDeleter {
    void operator()(AVFilterGraph* graph) const noexcept;
};
using FilterGraphPtr = std::unique_ptr<AVFilterGraph, FilterGraphDeleter>;

/// The first pass: one palette of at most 256 colours for all the pictures it is shown.
class GifPaletteBuilder {
  public:
    /// Pictures of `size` in packed RGB (`AV_PIX_FMT_RGB24`).
    explicit GifPaletteBuilder(PixelSize size);

    /// Counts the colours of `picture`.
    void add(AVFrame& picture);
    /// The palette (a 16×16 picture of its colours, as the mapping filter takes it).
    [[nodiscard]] FramePtr finish();

  private:
    FilterGraphPtr graph_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
};

/// The second pass: the GIF file, each picture shown for 1 / `framesPerSecond` s, looping forever when
/// `loop` is set and playing once otherwise. Failures throw `EngineError::exportFailed` with FFmpeg's reason.
class GifWriter {
  public:
    GifWriter(const std::filesystem::path& file, PixelSize size, int framesPerSecond, bool loop,
              const AVFrame& palette);
    ~GifWriter();
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    /// Maps `picture` (RGB24 at the size given) to the palette and writes it as the next frame.
    void add(AVFrame& picture);
    /// Writes the rest and closes the file.
    void finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace morvane::engine::ffmpeg
