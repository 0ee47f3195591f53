#include "morvane/engine/probe/media_probe.hpp"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

#include "ffmpeg/container_facts.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine {
namespace {

__extension__ using Int128 = __int128;

// b - a in seconds, exactly before the one conversion to double: times of one track share a timescale,
// and mixed timescales meet on their product in 128 bits.
double deltaSeconds(RationalTime a, RationalTime b) {
    if (a.timescale == b.timescale) return static_cast<double>(b.value - a.value) / b.timescale;
    const Int128 numerator =
        static_cast<Int128>(b.value) * a.timescale - static_cast<Int128>(a.value) * b.timescale;
    const Int128 denominator = static_cast<Int128>(a.timescale) * b.timescale;
    return static_cast<double>(static_cast<long double>(numerator) / static_cast<long double>(denominator));
}

TrackSummary summarize(const ffmpeg::StreamFacts& facts, std::string kind) {
    TrackSummary summary{.kind = std::move(kind), .formatDescriptions = facts.descriptions};
    if (summary.kind == "video") {
        summary.nominalFrameRate = facts.averageFrameRate;
        summary.naturalSize = fmt::format("{}x{}", facts.width, facts.height);
        summary.timecode = facts.timecode;
    }
    return summary;
}

template <class T>
void putIfPresent(Json& json, const char* key, const std::optional<T>& value) {
    if (value) json[key] = *value;
}

}  // namespace

std::pair<int, int> MediaProbeReport::videoNaturalSize() const {
    if (!video || !video->naturalSize) return {0, 0};
    int width = 0;
    int height = 0;
    if (std::sscanf(video->naturalSize->c_str(), "%dx%d", &width, &height) != 2) return {0, 0};
    return {width, height};
}

void to_json(Json& json, const TrackSummary& summary) {
    json = Json::object();
    json["kind"] = summary.kind;
    json["formatDescriptions"] = summary.formatDescriptions;
    putIfPresent(json, "nominalFrameRate", summary.nominalFrameRate);
    putIfPresent(json, "estimatedFrameRate", summary.estimatedFrameRate);
    putIfPresent(json, "naturalSize", summary.naturalSize);
    putIfPresent(json, "timecode", summary.timecode);
}

void to_json(Json& json, const VFRAnalysis& analysis) {
    json = Json{{"sampleCount", analysis.sampleCount},
                {"nominalFrameDurationSeconds", analysis.nominalFrameDurationSeconds},
                {"minDeltaSeconds", analysis.minDeltaSeconds},
                {"maxDeltaSeconds", analysis.maxDeltaSeconds},
                {"medianDeltaSeconds", analysis.medianDeltaSeconds},
                {"uniqueDeltaCount", analysis.uniqueDeltaCount},
                {"isLikelyVFR", analysis.isLikelyVFR},
                {"notes", analysis.notes}};
}

void to_json(Json& json, const MediaProbeReport& report) {
    json = Json{{"url", report.url},
                {"duration", report.duration},
                {"durationSeconds", report.durationSeconds},
                {"rotationDegrees", report.rotationDegrees}};
    putIfPresent(json, "video", report.video);
    putIfPresent(json, "audio", report.audio);
    putIfPresent(json, "vfr", report.vfr);
}

VFRAnalysis VFRAnalyzer::analyze(std::span<const RationalTime> presentationTimes, double nominalFrameRate) {
    const double nominal = nominalFrameRate > 0 ? 1.0 / nominalFrameRate : 1.0;
    VFRAnalysis analysis{.sampleCount = static_cast<int>(presentationTimes.size()),
                         .nominalFrameDurationSeconds = nominal};

    std::vector<RationalTime> sorted(presentationTimes.begin(), presentationTimes.end());
    std::sort(sorted.begin(), sorted.end());
    std::vector<double> deltas;
    deltas.reserve(sorted.size());
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        const double delta = deltaSeconds(sorted[i - 1], sorted[i]);
        if (delta > 0) deltas.push_back(delta);
    }
    if (deltas.empty()) {
        analysis.notes = "No delta samples";
        return analysis;
    }

    std::sort(deltas.begin(), deltas.end());
    analysis.minDeltaSeconds = deltas.front();
    analysis.maxDeltaSeconds = deltas.back();
    analysis.medianDeltaSeconds = deltas[deltas.size() / 2];
    // Rounded to a microsecond, so that timescale noise doesn't count as variety.
    std::set<double> unique;
    for (const double delta : deltas)
        unique.insert(std::round(delta * 1'000'000.0) / 1'000'000.0);
    analysis.uniqueDeltaCount = static_cast<int>(unique.size());

    const double spread = analysis.maxDeltaSeconds - analysis.minDeltaSeconds;
    // Half a millisecond or 5% of a frame, whichever is larger: small jitter from rounding to a
    // container's timescale is not variable timing.
    const double threshold = std::max(0.0005, 0.05 * nominal);
    analysis.isLikelyVFR = analysis.sampleCount >= 2 && analysis.uniqueDeltaCount >= 4 && spread > threshold;
    analysis.notes = analysis.isLikelyVFR
                         ? fmt::format("PTS deltas vary ({} unique values, spread {:.5f}s)",
                                       analysis.uniqueDeltaCount, spread)
                         : fmt::format("PTS deltas consistent with CFR (~{:.5f}s nominal)", nominal);
    return analysis;
}

MediaProbeReport MediaProbe::probe(const std::filesystem::path& file, std::stop_token stop) {
    const std::filesystem::path absolute = std::filesystem::absolute(file).lexically_normal();
    const ffmpeg::ContainerFacts facts = ffmpeg::readContainerFacts(absolute, stop);

    MediaProbeReport report{.url = fileURL(absolute), .rotationDegrees = facts.rotationDegrees};
    if (facts.duration) {
        report.duration = facts.duration->formatted(false);
        report.durationSeconds = facts.duration->seconds();
    } else {
        report.duration = "0/1";
    }
    if (facts.audio) report.audio = summarize(*facts.audio, "audio");
    if (facts.video) {
        report.video = summarize(*facts.video, "video");
        const auto& times = facts.videoPresentationTimes;
        report.vfr = VFRAnalyzer::analyze(times, report.video->nominalFrameRate.value_or(0));
        // Frames over the time they span: exact for a steady file even when its timescale (a millisecond
        // in Matroska) rounds each gap, and the average rate of a variable one.
        if (times.size() >= 2) {
            const auto [first, last] = std::minmax_element(times.begin(), times.end());
            const double span = deltaSeconds(*first, *last);
            if (span > 0) report.video->estimatedFrameRate = static_cast<double>(times.size() - 1) / span;
        }
    }
    return report;
}

std::string FrameDurationGuess::fromRate(std::optional<double> framesPerSecond) {
    constexpr const char* fallback = "1001/30000";
    if (!framesPerSecond || !std::isfinite(*framesPerSecond) || *framesPerSecond <= 0) return fallback;
    const double rate = *framesPerSecond;
    if (std::abs(rate - 29.97) <= 0.02) return "1001/30000";
    if (std::abs(rate - 23.976) <= 0.02) return "1001/24000";
    if (std::abs(rate - 59.94) <= 0.02) return "1001/60000";
    const double rounded = std::round(rate);
    if (std::abs(rounded - rate) < 0.001 && rounded >= 1)
        return fmt::format("1/{}", static_cast<long long>(rounded));
    return fallback;
}

std::string FrameDurationGuess::from(const MediaProbeReport& report) {
    if (!report.video) return fromRate(std::nullopt);
    // The container's own rate first: it is exact for a steady file, where a rate measured from stamps
    // rounded to a millisecond (Matroska) is not.
    return fromRate(report.video->nominalFrameRate ? report.video->nominalFrameRate
                                                   : report.video->estimatedFrameRate);
}

}  // namespace morvane::engine
