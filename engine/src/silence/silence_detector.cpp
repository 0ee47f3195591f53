#include "morvane/engine/silence/silence_detector.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "audio/stream_pass.hpp"
#include "audio/sum_of_squares.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

RationalTime truncatedToWorkingTimescale(double seconds) {
    return {static_cast<std::int64_t>(std::trunc(seconds * RationalTime::workingTimescale)),
            RationalTime::workingTimescale};
}

RationalTime readTime(const JsonReader& reader) {
    const auto text = reader.get<std::string>();
    try {
        return RationalTime::parse(text);
    } catch (const EngineError&) {
        reader.fail("expected a time like \"123/60000s\"");
    }
}

}  // namespace

SilenceSpan SilenceSpan::fromSeconds(double startSeconds, double endSeconds) {
    return {truncatedToWorkingTimescale(startSeconds), truncatedToWorkingTimescale(endSeconds), startSeconds,
            endSeconds};
}

SilenceScanner::SilenceScanner(const SilenceDetectionOptions& options)
    : options_(options),
      windowSamples_(
          std::max<std::int64_t>(static_cast<std::int64_t>(options.windowSeconds * sampleRate), 1)),
      threshold_(std::pow(10.0f, options.thresholdDB / 20.0f)) {}

void SilenceScanner::process(std::span<const float> samples) {
    while (!samples.empty()) {
        const auto take = static_cast<std::size_t>(
            std::min<std::int64_t>(windowSamples_ - windowFill_, static_cast<std::int64_t>(samples.size())));
        windowSum_ += sumOfSquares(samples.first(take));
        windowFill_ += static_cast<std::int64_t>(take);
        sampleCount_ += static_cast<std::int64_t>(take);
        samples = samples.subspan(take);
        if (windowFill_ == windowSamples_) closeWindow();
    }
}

void SilenceScanner::closeWindow() {
    // The RMS as a 32-bit float, like the window it describes: a window exactly at the threshold is not
    // silent, whatever the rounding of the sum.
    const auto rms = static_cast<float>(std::sqrt(windowSum_ / static_cast<double>(windowFill_)));
    const bool silent = rms < threshold_;
    if (silent && runStart_ < 0) runStart_ = windowIndex_;
    if (!silent && runStart_ >= 0) endRun(static_cast<double>(windowIndex_ * windowSamples_) / sampleRate);
    ++windowIndex_;
    windowSum_ = 0.0;
    windowFill_ = 0;
}

void SilenceScanner::endRun(double endSeconds) {
    const double rawStart = static_cast<double>(runStart_ * windowSamples_) / sampleRate;
    runStart_ = -1;
    const double start = std::max(rawStart - options_.paddingSeconds, 0.0);
    const double end = endSeconds + options_.paddingSeconds;
    if (options_.minSilenceSeconds <= end - start) spans_.push_back(SilenceSpan::fromSeconds(start, end));
}

std::vector<SilenceSpan> SilenceScanner::finish() {
    if (windowFill_ > 0) closeWindow();
    if (runStart_ >= 0) endRun(static_cast<double>(sampleCount_) / sampleRate);
    return std::move(spans_);
}

namespace SilenceDetector {

std::vector<SilenceSpan> detect(const std::filesystem::path& url, const SilenceDetectionOptions& options,
                                const ProgressCallback& progress, std::stop_token stop) {
    PCMStream stream(url, SilenceScanner::sampleRate, std::move(stop), "Failed to start audio reader");
    SilenceScanner scanner(options);
    forEachBlock(stream, progress, [&](std::span<const float> block) { scanner.process(block); });
    return scanner.finish();
}

std::vector<SilenceSpan> detect(std::span<const float> samples44100, const SilenceDetectionOptions& options) {
    SilenceScanner scanner(options);
    scanner.process(samples44100);
    return scanner.finish();
}

}  // namespace SilenceDetector

void to_json(Json& json, const SilenceSpan& span) {
    json = Json::object();
    json["start"] = span.start.formatted();
    json["end"] = span.end.formatted();
    json["startSeconds"] = span.startSeconds;
    json["endSeconds"] = span.endSeconds;
}

void fromJson(const JsonReader& reader, SilenceSpan& span) {
    span.start = readTime(reader["start"]);
    span.end = readTime(reader["end"]);
    span.startSeconds = reader["startSeconds"].get<double>();
    span.endSeconds = reader["endSeconds"].get<double>();
}

void to_json(Json& json, const SilenceDetectionOptions& options) {
    json = Json::object();
    json["thresholdDB"] = options.thresholdDB;
    json["windowSeconds"] = options.windowSeconds;
    json["minSilenceSeconds"] = options.minSilenceSeconds;
    json["paddingSeconds"] = options.paddingSeconds;
}

void fromJson(const JsonReader& reader, SilenceDetectionOptions& options) {
    const SilenceDetectionOptions defaults;
    options.thresholdDB =
        static_cast<float>(reader.valueOr("thresholdDB", static_cast<double>(defaults.thresholdDB)));
    options.windowSeconds = reader.valueOr("windowSeconds", defaults.windowSeconds);
    options.minSilenceSeconds = reader.valueOr("minSilenceSeconds", defaults.minSilenceSeconds);
    options.paddingSeconds = reader.valueOr("paddingSeconds", defaults.paddingSeconds);
}

}  // namespace morvane::engine
