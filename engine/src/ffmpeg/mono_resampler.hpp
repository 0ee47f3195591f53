#pragma once

// Rate conversion of mono 32-bit float samples, band-limited: swresample's polyphase filter with 64 taps a
// phase (twice FFmpeg's default), a Kaiser window and the passband ending at 91% of the lower Nyquist
// frequency, which rejects aliases about as well as the SoX resampler's high-quality setting at half its
// cost here (that matters when an hour of audio is converted). Output sample k lies at time
// k / outputRate from the first input sample: the filter's delay is compensated.
//
//     MonoResampler resampler(44100);
//     resampler.convert(block48k, 48000, out);   // appends
//     resampler.flush(out);                      // the filter's tail, at the end

#include <span>
#include <vector>

#include "ffmpeg/ffmpeg_ptr.hpp"

namespace morvane::engine::ffmpeg {

/// Sets the high-quality filter above on a context that is not yet initialised.
void setHighQualityResampling(SwrContext* context);

class MonoResampler {
  public:
    explicit MonoResampler(int outputRate) noexcept : outputRate_(outputRate) {}

    /// Appends `input`, mono at `inputRate`, converted to the output rate. A new input rate flushes the
    /// old one's tail first. Throws `EngineError::readerFailed` when swresample refuses.
    void convert(std::span<const float> input, int inputRate, std::vector<float>& out);

    /// Appends what the filter still holds and starts afresh.
    void flush(std::vector<float>& out);

    /// Drops what the filter holds (after a seek).
    void reset() noexcept;

    [[nodiscard]] int outputRate() const noexcept { return outputRate_; }

  private:
    void configure(int inputRate);
    void run(const float* input, int count, std::vector<float>& out);

    int outputRate_;
    int inputRate_ = 0;
    ResamplerPtr context_;
};

}  // namespace morvane::engine::ffmpeg
