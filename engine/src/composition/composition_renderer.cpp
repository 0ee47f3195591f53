#include "morvane/engine/composition/composition_renderer.hpp"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/video_decoder.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/morvane_video_compositor.hpp"

namespace morvane::engine {
namespace {

// Two layers that show one source this close in time share its picture.
constexpr double kSamePictureSeconds = 1e-6;
// Decoders kept per file: enough for a source shown twice at once plus one that seeks ahead.
constexpr std::size_t kDecodersPerFile = 3;
constexpr std::size_t kStretchBlock = 4096;

// Stretches `input` to exactly `outputCount` samples keeping its pitch (Rubber Band's phase vocoder, in
// its streaming mode so a long clip is never held twice).
void stretchKeepingPitch(std::span<const float> input, std::size_t outputCount, int sampleRate,
                         std::vector<float>& out) {
    out.clear();
    if (input.empty() || outputCount == 0) {
        out.assign(outputCount, 0.0f);
        return;
    }
    using RubberBand::RubberBandStretcher;
    RubberBandStretcher stretcher(static_cast<std::size_t>(sampleRate), 1,
                                  RubberBandStretcher::OptionProcessRealTime |
                                      RubberBandStretcher::OptionThreadingNever |
                                      RubberBandStretcher::OptionEngineFaster,
                                  static_cast<double>(outputCount) / static_cast<double>(input.size()));
    stretcher.setMaxProcessSize(kStretchBlock);
    std::size_t skip = stretcher.getStartDelay();
    std::vector<float> block(kStretchBlock, 0.0f);
    const auto collect = [&] {
        for (int available = stretcher.available(); available > 0; available = stretcher.available()) {
            const auto n = std::min<std::size_t>(static_cast<std::size_t>(available), block.size());
            float* channels[1] = {block.data()};
            const std::size_t got = stretcher.retrieve(channels, n);
            std::size_t from = std::min(skip, got);
            skip -= from;
            out.insert(out.end(), block.begin() + static_cast<std::ptrdiff_t>(from),
                       block.begin() + static_cast<std::ptrdiff_t>(got));
        }
    };
    // Silence ahead of the input lets the stretcher start at full strength on the first sample.
    for (std::size_t pad = stretcher.getPreferredStartPad(); pad > 0;) {
        const std::size_t n = std::min(pad, kStretchBlock);
        std::fill(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(n), 0.0f);
        const float* channels[1] = {block.data()};
        stretcher.process(channels, n, false);
        pad -= n;
        collect();
    }
    for (std::size_t at = 0; at < input.size(); at += kStretchBlock) {
        const std::size_t n = std::min(kStretchBlock, input.size() - at);
        const float* channels[1] = {input.data() + at};
        stretcher.process(channels, n, at + n == input.size());
        collect();
    }
    while (out.size() < outputCount && stretcher.available() >= 0) {
        if (stretcher.available() == 0) break;
        collect();
    }
    out.resize(outputCount, 0.0f);
}

// Plays `input` faster or slower as tape would: read at fractional positions, linearly interpolated.
void stretchVarispeed(std::span<const float> input, std::size_t outputCount, std::vector<float>& out) {
    out.assign(outputCount, 0.0f);
    if (input.empty()) return;
    const double step = static_cast<double>(input.size()) / static_cast<double>(outputCount);
    for (std::size_t i = 0; i < outputCount; ++i) {
        const double at = i * step;
        const auto k = static_cast<std::size_t>(at);
        const double f = at - static_cast<double>(k);
        const float a = input[std::min(k, input.size() - 1)];
        const float b = input[std::min(k + 1, input.size() - 1)];
        out[i] = static_cast<float>(a + (b - a) * f);
    }
}

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

    PCMBuffer renderAudio(const AudioRenderOptions& options, const ProgressCallback& progress) {
        const int rate = std::max(options.sampleRate, 1);
        const TimeSpan range =
            options.range.value_or(TimeSpan{RationalTime::zero, build.composition.duration()});
        const double rangeStart = range.start.seconds();
        const auto total = static_cast<std::size_t>(
            std::max<std::int64_t>(std::llround(range.duration().seconds() * rate), 0));
        std::vector<float> mix(total, 0.0f);
        const auto tracks = build.composition.tracksWithMediaType(CompositionMediaType::audio);
        std::size_t segmentsTotal = 0;
        for (const auto* track : tracks)
            segmentsTotal += track->segments.size();
        std::size_t segmentsDone = 0;

        std::map<std::string, std::unique_ptr<PCMStream>> streams;
        std::vector<float> source;
        std::vector<float> stretched;
        for (const auto* track : tracks) {
            const AudioMixInputParameters* envelope =
                build.audioMix ? build.audioMix->parameters(track->trackID) : nullptr;
            const bool keepPitch =
                envelope == nullptr || envelope->audioTimePitchAlgorithm == AudioTimePitchAlgorithm::spectral;
            for (const auto& segment : track->segments) {
                throwIfStopRequested(stop);
                ++segmentsDone;
                if (segment.source.kind != CompositionSource::Kind::media) continue;
                const double from = std::max(segment.target.start.seconds(), rangeStart);
                const double to = std::min(segment.target.end.seconds(), range.end.seconds());
                if (!(to > from)) continue;
                const auto first = static_cast<std::int64_t>(std::llround((from - rangeStart) * rate));
                const auto last = std::min<std::int64_t>(std::llround((to - rangeStart) * rate),
                                                         static_cast<std::int64_t>(total));
                if (last <= first) continue;
                const auto count = static_cast<std::size_t>(last - first);

                auto& stream = streams[segment.source.path];
                if (!stream) stream = std::make_unique<PCMStream>(segment.source.path, rate, stop);
                const double sourceFrom =
                    segment.sourceTime(RationalTime::fromSeconds(from, RationalTime::workingTimescale))
                        .seconds();
                const double sourceLength = (to - from) * segment.rate();
                stream->setRange(sourceFrom, sourceLength);
                source.clear();
                for (auto block = stream->read(); !block.empty(); block = stream->read())
                    source.insert(source.end(), block.begin(), block.end());

                const std::vector<float>* samples = &source;
                if (segment.isScaled()) {
                    if (keepPitch) {
                        stretchKeepingPitch(source, count, rate, stretched);
                    } else {
                        stretchVarispeed(source, count, stretched);
                    }
                    samples = &stretched;
                }
                const std::size_t n = std::min(count, samples->size());
                float* out = mix.data() + first;
                for (std::size_t i = 0; i < n; ++i) {
                    const float gain =
                        envelope != nullptr
                            ? envelope->volume(rangeStart +
                                               static_cast<double>(first + static_cast<std::int64_t>(i)) /
                                                   rate)
                            : 1.0f;
                    out[i] += (*samples)[i] * gain;
                }
                if (progress && segmentsTotal > 0)
                    progress(static_cast<double>(segmentsDone) / segmentsTotal);
            }
        }
        if (progress) progress(1.0);
        PCMBuffer buffer{std::move(mix), static_cast<double>(rate), 0.0};
        buffer.durationSeconds = static_cast<double>(buffer.samples.size()) / rate;
        return buffer;
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
    return impl_->renderAudio(options, progress);
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
