#include "morvane/engine/export/gif_exporter.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "export/export_output.hpp"
#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/gif_writer.hpp"
#include "ffmpeg/picture_converter.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine::GIFExporter {
namespace {

constexpr double kBuiltShare = 0.08;
constexpr double kFramesShare = 0.9;

// Makes the pictures of a GIF, in order, as packed RGB at the GIF's size.
class PictureSource {
  public:
    PictureSource(CompositionRenderer& renderer, PixelSize size) : renderer_(renderer) {
        rgb_ = ffmpeg::makeFrame();
        rgb_->format = AV_PIX_FMT_RGB24;
        rgb_->width = size.width;
        rgb_->height = size.height;
        if (av_frame_get_buffer(rgb_.get(), 0) < 0) throw std::bad_alloc();
    }

    AVFrame& at(RationalTime time) {
        VideoFrame frame;
        try {
            frame = renderer_.frame(time);
        } catch (const OperationCancelled&) {
            throw;
        } catch (const std::exception& e) {
            throw EngineError::decodeFailed(
                fmt::format("GIF frame failed at {:.3f} s: {}", time.seconds(), e.what()));
        }
        if (av_frame_make_writable(rgb_.get()) < 0) throw std::bad_alloc();
        if (frame.isPassthrough()) {
            converter_.toVideo(*frame.picture()->frame, *rgb_);
        } else {
            const RGBAImage& image = *frame.image();
            converter_.toVideo(image, *rgb_);
        }
        return *rgb_;
    }

  private:
    CompositionRenderer& renderer_;
    ffmpeg::PictureConverter converter_;
    ffmpeg::FramePtr rgb_;
};

}  // namespace

std::int64_t frameCount(double durationSeconds, int framesPerSecond) noexcept {
    const double frames = std::max(durationSeconds, 0.1) * std::max(framesPerSecond, 1);
    // 0.1 s at 30 per second is 3 frames, though the product comes out a hair above 3.
    return std::max<std::int64_t>(static_cast<std::int64_t>(std::ceil(frames - 1e-9)), 1);
}

RenderReport render(const EditPlan& plan, const AudioFinishingOptions& audio,
                    std::optional<ExportTimeRange> timeRange, const GIFExportOptions& gif,
                    const std::filesystem::path& to, const ProgressCallback& progress, std::stop_token stop) {
    const auto report = [&](double share) {
        if (progress) progress(share);
    };
    report(0.0);
    CompositionBuildOptions buildOptions;
    buildOptions.includeTextAnimation = false;
    CompositionRenderer renderer(CompositionBuilder::build(plan, audio, buildOptions, stop), stop);
    report(kBuiltShare);

    const RationalTime length = renderer.duration();
    const TimeSpan range =
        MP4Exporter::exportTimeSpan(timeRange, length).value_or(TimeSpan{RationalTime::zero, length});
    const int rate = std::max(gif.framesPerSecond, 1);
    const std::int64_t frames = frameCount(range.duration().seconds(), rate);
    const PixelSize size =
        fittedOutputSize(renderer.build().renderSize, PixelSize{gif.maxDimension, gif.maxDimension});
    // The last picture of the program stands in for times past its end (a range shorter than 0.1 s).
    const RationalTime lastFrame = renderer.frameTime(std::max<std::int64_t>(renderer.frameCount() - 1, 0));
    const auto timeOf = [&](std::int64_t i) {
        const RationalTime t = range.start.adding(
            RationalTime::fromSeconds(static_cast<double>(i) / rate, RationalTime::secondsTimescale));
        return lastFrame < t ? lastFrame : t;
    };

    prepareOutput(to);
    const auto partial = partialFileBeside(to);
    try {
        PictureSource pictures(renderer, size);
        // Both passes share the bar: the palette's, then the file's.
        const auto step = [&](std::int64_t done) {
            report(kBuiltShare + static_cast<double>(done) * kFramesShare / static_cast<double>(2 * frames));
        };
        ffmpeg::GifPaletteBuilder palette(size);
        for (std::int64_t i = 0; i < frames; ++i) {
            throwIfStopRequested(stop);
            palette.add(pictures.at(timeOf(i)));
            step(i + 1);
        }
        const ffmpeg::FramePtr colours = palette.finish();
        ffmpeg::GifWriter writer(partial, size, rate, gif.loop, *colours);
        for (std::int64_t i = 0; i < frames; ++i) {
            throwIfStopRequested(stop);
            writer.add(pictures.at(timeOf(i)));
            step(frames + i + 1);
        }
        writer.finish();
        std::filesystem::rename(partial, to);
    } catch (const std::filesystem::filesystem_error& e) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw EngineError::exportFailed(
            fmt::format("Could not write {}: {}", to.string(), e.code().message()));
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw;
    }
    report(1.0);
    return {to.string(), std::max(static_cast<double>(frames) / rate, 0.1), frames};
}

}  // namespace morvane::engine::GIFExporter
