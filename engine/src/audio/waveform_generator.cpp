#include "morvane/engine/audio/waveform_generator.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "audio/stream_pass.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

constexpr int kBinsPerSecond = 120;
constexpr std::size_t kMinBins = 1024;
constexpr std::size_t kMaxBins = 65536;
constexpr float kQuietReference = 0.001f;
constexpr float kQuietGain = 999.99994f;  // 1 / 0.001 in single precision

// A float as the double its shortest decimal form reads as, so that JSON shows 0.1 rather than
// 0.10000000149011612.
double shortestDouble(float value) {
    const std::string text = fmt::format("{}", value);
    double out = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), out);
    return out;
}

std::vector<float> readFloats(const JsonReader& reader) {
    std::vector<float> out;
    for (double value : reader.get<std::vector<double>>())
        out.push_back(static_cast<float>(value));
    return out;
}

}  // namespace

WaveformBinner::WaveformBinner(std::size_t bins, double samplesPerBin)
    : mins_(bins, std::numeric_limits<float>::infinity()),
      maxs_(bins, -std::numeric_limits<float>::infinity()),
      samplesPerBin_(samplesPerBin),
      binEnd_(bins > 1 ? static_cast<std::int64_t>(std::ceil(samplesPerBin))
                       : std::numeric_limits<std::int64_t>::max()) {}

void WaveformBinner::process(std::span<const float> samples) noexcept {
    if (mins_.empty()) return;
    while (!samples.empty()) {
        // Sample i belongs to bin trunc(i / samplesPerBin): the run up to the next boundary shares one bin.
        const auto run = static_cast<std::size_t>(
            std::min<std::int64_t>(binEnd_ - sample_, static_cast<std::int64_t>(samples.size())));
        // Four independent extremes per side keep the comparisons from waiting on each other.
        float lo[4] = {mins_[bin_], mins_[bin_], mins_[bin_], mins_[bin_]};
        float hi[4] = {maxs_[bin_], maxs_[bin_], maxs_[bin_], maxs_[bin_]};
        std::size_t i = 0;
        for (; i + 4 <= run; i += 4) {
            for (std::size_t k = 0; k < 4; ++k) {
                const float s = samples[i + k];
                lo[k] = s < lo[k] ? s : lo[k];
                hi[k] = s > hi[k] ? s : hi[k];
            }
        }
        for (; i < run; ++i) {
            lo[0] = samples[i] < lo[0] ? samples[i] : lo[0];
            hi[0] = samples[i] > hi[0] ? samples[i] : hi[0];
        }
        mins_[bin_] = std::min({lo[0], lo[1], lo[2], lo[3]});
        maxs_[bin_] = std::max({hi[0], hi[1], hi[2], hi[3]});
        sample_ += static_cast<std::int64_t>(run);
        samples = samples.subspan(run);
        if (sample_ == binEnd_) {
            ++bin_;
            binEnd_ =
                bin_ + 1 < mins_.size()
                    ? static_cast<std::int64_t>(std::ceil(static_cast<double>(bin_ + 1) * samplesPerBin_))
                    : std::numeric_limits<std::int64_t>::max();
        }
    }
}

WaveformEnvelope WaveformBinner::finish(double durationSeconds) && {
    for (auto* values : {&mins_, &maxs_}) {
        for (float& v : *values) {
            if (!std::isfinite(v)) v = 0.0f;
        }
    }
    return {std::move(mins_), std::move(maxs_), durationSeconds};
}

namespace WaveformGenerator {

std::size_t binCount(double durationSeconds, std::optional<int> targetBins) {
    if (targetBins && *targetBins > 0) return static_cast<std::size_t>(*targetBins);
    const double byRule = std::trunc(std::max(durationSeconds, 0.0) * kBinsPerSecond);
    return static_cast<std::size_t>(
        std::clamp(byRule, static_cast<double>(kMinBins), static_cast<double>(kMaxBins)));
}

void normalizeSigned(WaveformEnvelope& envelope) {
    std::vector<float> magnitudes;
    magnitudes.reserve(envelope.mins.size() + envelope.maxs.size());
    for (const auto* values : {&envelope.mins, &envelope.maxs}) {
        for (float v : *values)
            magnitudes.push_back(std::abs(v));
    }
    if (magnitudes.empty()) return;
    const std::size_t count = magnitudes.size();
    const std::size_t at = std::min(count - 1, static_cast<std::size_t>(static_cast<double>(count) * 0.99));
    std::nth_element(magnitudes.begin(), magnitudes.begin() + static_cast<std::ptrdiff_t>(at),
                     magnitudes.end());
    const float reference = magnitudes[at];
    const float gain = reference > kQuietReference ? 1.0f / reference : kQuietGain;
    for (auto* values : {&envelope.mins, &envelope.maxs}) {
        for (float& v : *values)
            v = std::clamp(v * gain, -1.0f, 1.0f);
    }
}

WaveformEnvelope generate(const std::filesystem::path& url, std::optional<int> targetBins,
                          const ProgressCallback& progress, std::stop_token stop) {
    std::optional<PCMStream> stream;
    try {
        stream.emplace(url, sampleRate, std::move(stop));
    } catch (const EngineError& e) {
        if (e.kind() == EngineError::Kind::noAudioTrack) return {};
        throw;
    }
    const double duration = stream->durationSeconds();
    if (!(duration > 0.0)) return {};

    const std::size_t bins = binCount(duration, targetBins);
    const double expected = duration * sampleRate;
    WaveformBinner binner(bins, expected / static_cast<double>(bins));
    forEachBlock(*stream, progress, [&](std::span<const float> block) { binner.process(block); });
    WaveformEnvelope envelope = std::move(binner).finish(duration);
    normalizeSigned(envelope);
    return envelope;
}

}  // namespace WaveformGenerator

void to_json(Json& json, const WaveformEnvelope& envelope) {
    const auto list = [](const std::vector<float>& values) {
        Json array = Json::array();
        for (float v : values)
            array.push_back(shortestDouble(v));
        return array;
    };
    json = Json::object();
    json["mins"] = list(envelope.mins);
    json["maxs"] = list(envelope.maxs);
    json["durationSeconds"] = envelope.durationSeconds;
}

void fromJson(const JsonReader& reader, WaveformEnvelope& envelope) {
    envelope.mins = readFloats(reader["mins"]);
    envelope.maxs = readFloats(reader["maxs"]);
    envelope.durationSeconds = reader["durationSeconds"].get<double>();
}

}  // namespace morvane::engine
