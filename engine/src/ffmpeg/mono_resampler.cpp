#include "ffmpeg/mono_resampler.hpp"

#include <algorithm>

#include "ffmpeg/ffmpeg_error.hpp"

namespace morvane::engine::ffmpeg {

void setHighQualityResampling(SwrContext* context) {
    av_opt_set_int(context, "resampler", SWR_ENGINE_SWR, 0);
    av_opt_set_int(context, "filter_size", 64, 0);
    av_opt_set_double(context, "cutoff", 0.91, 0);
}

void MonoResampler::configure(int inputRate) {
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    SwrContext* raw = nullptr;
    int rc = swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, outputRate_, &mono, AV_SAMPLE_FMT_FLT,
                                 inputRate, 0, nullptr);
    ResamplerPtr context(raw);
    if (rc < 0) throw readerError("Could not set up rate conversion", rc);
    setHighQualityResampling(context.get());
    if (rc = swr_init(context.get()); rc < 0) throw readerError("Could not set up rate conversion", rc);
    context_ = std::move(context);
    inputRate_ = inputRate;
}

void MonoResampler::run(const float* input, int count, std::vector<float>& out) {
    const int capacity = swr_get_out_samples(context_.get(), count);
    if (capacity <= 0) return;
    const std::size_t old = out.size();
    out.resize(old + static_cast<std::size_t>(capacity));
    auto* destination = reinterpret_cast<std::uint8_t*>(out.data() + old);
    const auto* source = reinterpret_cast<const std::uint8_t*>(input);
    const int produced =
        swr_convert(context_.get(), &destination, capacity, input != nullptr ? &source : nullptr, count);
    if (produced < 0) {
        out.resize(old);
        throw readerError("Could not convert the sample rate", produced);
    }
    out.resize(old + static_cast<std::size_t>(produced));
}

void MonoResampler::convert(std::span<const float> input, int inputRate, std::vector<float>& out) {
    if (context_ && inputRate != inputRate_) flush(out);
    if (!context_) configure(inputRate);
    constexpr std::size_t kPiece = std::size_t{1} << 20;  // swresample counts in int
    for (std::size_t at = 0; at < input.size(); at += kPiece)
        run(input.data() + at, static_cast<int>(std::min(kPiece, input.size() - at)), out);
}

void MonoResampler::flush(std::vector<float>& out) {
    if (context_) run(nullptr, 0, out);
    reset();
}

void MonoResampler::reset() noexcept {
    context_.reset();
    inputRate_ = 0;
}

}  // namespace morvane::engine::ffmpeg
