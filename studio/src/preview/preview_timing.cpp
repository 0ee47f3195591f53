#include "preview/preview_timing.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace morvane::studio::PreviewTiming {

double clockPosition(double anchorSeconds, double rate, double elapsedSeconds,
                     double durationSeconds) noexcept {
    const double position = anchorSeconds + rate * std::max(elapsedSeconds, 0.0);
    return std::clamp(position, 0.0, std::max(durationSeconds, 0.0));
}

FramePick pickFrame(std::span<const double> queued, double clock, double frameSeconds,
                    bool backwards) noexcept {
    FramePick pick;
    const double early = frameSeconds / 2.0;
    for (std::size_t i = 0; i < queued.size(); ++i) {
        const bool due = backwards ? queued[i] >= clock - early : queued[i] <= clock + early;
        if (!due) break;
        if (pick.show) ++pick.dropped;
        pick.show = i;
    }
    return pick;
}

long long frameIndex(double seconds, double frameSeconds) noexcept {
    if (!(frameSeconds > 0.0) || !(seconds > 0.0)) return 0;
    // A hair of tolerance, so that a time printed from a frame's start lands on that frame.
    return static_cast<long long>(std::floor(seconds / frameSeconds + 1e-6));
}

QByteArray encodeSamples(std::span<const float> mono, const QAudioFormat& format) {
    const int channels = std::max(format.channelCount(), 1);
    const int bytes = format.bytesPerSample();
    if (bytes <= 0) return {};
    QByteArray out(static_cast<qsizetype>(mono.size()) * channels * bytes, Qt::Uninitialized);
    char* p = out.data();
    for (const float sample : mono) {
        const float s = std::isfinite(sample) ? std::clamp(sample, -1.0f, 1.0f) : 0.0f;
        for (int c = 0; c < channels; ++c) {
            switch (format.sampleFormat()) {
                case QAudioFormat::Float:
                    std::memcpy(p, &s, sizeof s);
                    break;
                case QAudioFormat::Int16: {
                    const auto v = static_cast<std::int16_t>(std::lround(s * 32767.0f));
                    std::memcpy(p, &v, sizeof v);
                    break;
                }
                case QAudioFormat::Int32: {
                    const auto v =
                        static_cast<std::int32_t>(std::llround(static_cast<double>(s) * 2147483647.0));
                    std::memcpy(p, &v, sizeof v);
                    break;
                }
                case QAudioFormat::UInt8: {
                    const auto v = static_cast<std::uint8_t>(std::lround(s * 127.0f + 128.0f));
                    std::memcpy(p, &v, sizeof v);
                    break;
                }
                default:
                    return {};
            }
            p += bytes;
        }
    }
    return out;
}

}  // namespace morvane::studio::PreviewTiming
