#include "morvane/engine/composition/composition_renderer.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/video_decoder.hpp"
#include "morvane/engine/composition/audio_mix_stream.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/morvane_video_compositor.hpp"

namespace morvane::engine {
namespace {

// Two layers that show one source this close in time share its picture.
constexpr double kSamePictureSeconds = 1e-6;
// Decoders kept per file: enough for a source shown twice at once plus one that seeks ahead.
constexpr std::size_t kDecodersPerFile = 3;

}  // namespace

struct CompositionRenderer::Impl {
    struct DecoderSlot {
        std::string path;
        std::unique_ptr<ffmpeg::VideoDecoder> decoder;
        std::uint64_t lastFrame = 0;
    };

    CompositionBuildResult build;
    std::stop_token stop;
    MorvaneVideoCompositor compositor;
    std::vector<DecoderSlot> decoders;
    std::uint64_t frameNumber = 0;
    std::map<std::string, std::shared_ptr<const RGBAImage>> plates;  // by colour key

    Impl(CompositionBuildResult b, std::stop_token s)
        : build(std::move(b)), stop(std::move(s)), compositor(build.renderSize) {}

    DecoderSlot& decoderFor(const std::string& path, double seconds) {
        DecoderSlot* reachable = nullptr;
        DecoderSlot* oldest = nullptr;
        DecoderSlot* any = nullptr;
        std::size_t count = 0;
        for (auto& slot : decoders) {
            if (slot.path != path) continue;
            ++count;
            any = &slot;
            if (slot.lastFrame == frameNumber) continue;  // already showing another moment in this frame
            if (slot.decoder->reachesWithoutSeeking(seconds) &&
                (reachable == nullptr || slot.decoder->position() > reachable->decoder->position()))
                reachable = &slot;
            if (oldest == nullptr || slot.lastFrame < oldest->lastFrame) oldest = &slot;
        }
        // Another decoder is opened only for a moment that the ones in use for this frame can't show;
        // otherwise the least recently used one seeks.
        DecoderSlot* chosen = reachable != nullptr ? reachable : oldest;
        if (chosen == nullptr && count < kDecodersPerFile) {
            decoders.push_back({path, std::make_unique<ffmpeg::VideoDecoder>(path, stop), 0});
            chosen = &decoders.back();
        }
        if (chosen == nullptr) chosen = any;  // more moments of one file in a frame than decoders: share
        chosen->lastFrame = frameNumber;
        return *chosen;
    }

    VideoFrame plate(const BackgroundColor& color) {
        const std::string key = CompositionBuilder::solidPlateKey(color);
        auto it = plates.find(key);
        if (it == plates.end()) {
            it = plates
                     .emplace(key, std::make_shared<const RGBAImage>(RGBAImage::filled(
                                       build.renderSize,
                                       RGBA8::fromStraight(color.red, color.green, color.blue, 1.0))))
                     .first;
        }
        return VideoFrame(it->second);
    }

    VideoFrame fetch(const CompositionSegment& segment, RationalTime time,
                     std::vector<std::pair<std::pair<std::string, double>, VideoFrame>>& fetched) {
        switch (segment.source.kind) {
            case CompositionSource::Kind::empty:
                return {};
            case CompositionSource::Kind::solidColor:
                return plate(segment.source.color);
            case CompositionSource::Kind::still:
            case CompositionSource::Kind::media:
                break;
        }
        const double seconds =
            segment.source.kind == CompositionSource::Kind::still ? 0.0 : segment.sourceTime(time).seconds();
        for (const auto& [key, frame] : fetched) {
            if (key.first == segment.source.path && std::abs(key.second - seconds) < kSamePictureSeconds)
                return frame;
        }
        DecoderSlot& slot = decoderFor(segment.source.path, seconds);
        VideoFrame frame(slot.decoder->pictureAt(seconds));
        fetched.push_back({{segment.source.path, seconds}, frame});
        return frame;
    }

    VideoFrame frame(RationalTime time) {
        if (time < RationalTime::zero || !(time < build.composition.duration()))
            throw EngineError::decodeFailed(MorvaneVideoCompositor::missingInstructionText);
        ++frameNumber;
        std::vector<std::pair<std::pair<std::string, double>, VideoFrame>> fetched;
        if (!build.videoComposition) {
            const auto videoTracks = build.composition.tracksWithMediaType(CompositionMediaType::video);
            const CompositionSegment* segment =
                videoTracks.empty() ? nullptr : videoTracks.front()->segment(time);
            VideoFrame out = segment != nullptr ? fetch(*segment, time, fetched) : VideoFrame{};
            return out.empty() ? compositor.backgroundFrame() : out;
        }
        const MorvaneCompositionInstruction* instruction = build.videoComposition->instruction(time);
        if (instruction == nullptr) return compositor.backgroundFrame();
        VideoCompositionRequest request{.instruction = instruction, .compositionTime = time};
        for (const auto& layer : instruction->layers) {
            if (request.sourceFrames.contains(layer.trackID)) continue;
            const CompositionTrack* track = build.composition.track(layer.trackID);
            const CompositionSegment* segment = track != nullptr ? track->segment(time) : nullptr;
            if (segment == nullptr) continue;
            request.sourceFrames.emplace(layer.trackID, fetch(*segment, time, fetched));
        }
        if (instruction->passthroughTrackID != MorvaneCompositionInstruction::invalidTrackID) {
            const auto it = request.sourceFrames.find(instruction->passthroughTrackID);
            if (it != request.sourceFrames.end() && it->second.isPassthrough() &&
                it->second.size() == build.renderSize)
                return it->second;
        }
        return compositor.startRequest(request);
    }
};

CompositionRenderer::CompositionRenderer(CompositionBuildResult build, std::stop_token stop)
    : impl_(std::make_unique<Impl>(std::move(build), std::move(stop))) {}

CompositionRenderer::~CompositionRenderer() = default;

VideoFrame CompositionRenderer::frame(RationalTime time) {
    return impl_->frame(time);
}

PCMBuffer CompositionRenderer::renderAudio(const AudioRenderOptions& options,
                                           const ProgressCallback& progress) {
    AudioMixStream mix(impl_->build, options, impl_->stop);
    std::vector<float> samples;
    samples.reserve(static_cast<std::size_t>(mix.totalSamples()));
    for (auto block = mix.read(); !block.empty(); block = mix.read()) {
        samples.insert(samples.end(), block.begin(), block.end());
        if (progress) progress(static_cast<double>(mix.position()) / static_cast<double>(mix.totalSamples()));
    }
    if (progress) progress(1.0);
    PCMBuffer buffer{std::move(samples), static_cast<double>(mix.sampleRate()), 0.0};
    buffer.durationSeconds = static_cast<double>(buffer.samples.size()) / mix.sampleRate();
    return buffer;
}

RationalTime CompositionRenderer::duration() const noexcept {
    return impl_->build.composition.duration();
}

std::int64_t CompositionRenderer::frameCount() const noexcept {
    const FrameRate rate{impl_->build.frameDuration};
    const RationalTime end = duration();
    std::int64_t count = rate.frameIndex(end);
    if (rate.timeForFrame(count) < end) ++count;
    return count;
}

RationalTime CompositionRenderer::frameTime(std::int64_t index) const {
    return FrameRate{impl_->build.frameDuration}.timeForFrame(index);
}

const CompositionBuildResult& CompositionRenderer::build() const noexcept {
    return impl_->build;
}

}  // namespace morvane::engine
