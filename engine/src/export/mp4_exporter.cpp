#include "morvane/engine/export/mp4_exporter.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "export/export_output.hpp"
#include "ffmpeg/media_input.hpp"
#include "ffmpeg/movie_encoder.hpp"
#include "morvane/engine/audio/loudness_analyzer.hpp"
#include "morvane/engine/composition/audio_mix_stream.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(100);
constexpr int kAudioSampleRate = 48000;
// The share of an encoder run spent mixing the sound before the picture starts.
constexpr double kAudioShare = 0.1;
// Loudness gain stops where the loudest sample would pass this level: the sound is never clipped.
constexpr double kPeakCeilingDB = -1.0;
// Animated text over this many items would stall the encoder; it is left out then.
constexpr std::size_t kMostAnimatedTextOperations = 8;

// Runs `work` on a thread of its own as one export session and reports its progress every 100 ms from
// this one, then once more as it ends: 1.0 when it completed, else where it stopped. `work` returns false
// when it ended without completing and without a failure. A failure is thrown as the session's: a stop
// as `OperationCancelled`, anything else as `readerFailed` with its reason.
using SessionWork = std::function<bool(const ProgressCallback&, std::stop_token)>;

bool runExportSession(const SessionWork& work, const ProgressCallback& progress,
                      const std::stop_token& stop) {
    std::stop_source session;
    const std::stop_callback forward(stop, [&session] { session.request_stop(); });
    std::atomic<double> share{0.0};
    std::mutex mutex;
    std::condition_variable ended;
    bool finished = false;
    bool completed = false;
    std::exception_ptr failure;
    std::jthread worker([&] {
        bool result = false;
        std::exception_ptr error;
        try {
            result = work([&share](double p) { share = p; }, session.get_token());
        } catch (...) {
            error = std::current_exception();
        }
        const std::lock_guard lock(mutex);
        completed = result;
        failure = error;
        finished = true;
        ended.notify_all();
    });
    {
        std::unique_lock lock(mutex);
        while (!ended.wait_for(lock, kPollInterval, [&] { return finished; })) {
            lock.unlock();
            if (progress) progress(share.load());
            lock.lock();
        }
    }
    worker.join();
    if (!failure) {
        if (progress) progress(completed ? 1.0 : share.load());
        return completed;
    }
    if (progress) progress(share.load());
    try {
        std::rethrow_exception(failure);
    } catch (const OperationCancelled&) {
        throw;
    } catch (const EngineError& e) {
        // The encoder's and the reader's own failures carry their reason (said once); others keep their
        // whole text.
        const bool ownReason =
            e.kind() == EngineError::Kind::exportFailed || e.kind() == EngineError::Kind::readerFailed;
        throw EngineError::readerFailed(ownReason ? e.payload() : e.what());
    } catch (const std::exception& e) {
        throw EngineError::readerFailed(e.what());
    } catch (...) {
        throw EngineError::readerFailed("Video export failed");
    }
}

// The gain that brings the mix to `target` (integrated, as the loudness meter measures it), as far as its
// loudest sample allows; 1 when there is no target or nothing to measure. The mix is listened to once here,
// in blocks, and made again as it is encoded: an hour of program is never held in memory.
float loudnessGain(const CompositionBuildResult& build, const AudioRenderOptions& mix, LoudnessTarget target,
                   const ProgressCallback& progress, const std::stop_token& stop) {
    const auto wanted = integratedLUFS(target);
    if (!wanted) return 1.0f;
    AudioMixStream stream(build, mix, stop);
    LoudnessMeter meter(stream.sampleRate());
    float peak = 0.0f;
    for (auto block = stream.read(); !block.empty(); block = stream.read()) {
        meter.process(block);
        for (const float s : block)
            peak = std::max(peak, std::abs(s));
        progress(static_cast<double>(stream.position()) / static_cast<double>(stream.totalSamples()));
    }
    const double measured = meter.integratedLUFS();
    if (!std::isfinite(measured) || !(peak > 0.0f)) return 1.0f;
    const double gainDB = std::min(*wanted - measured, kPeakCeilingDB - 20.0 * std::log10(peak));
    return static_cast<float>(std::pow(10.0, gainDB / 20.0));
}

// The program sound for one encoder run, made afresh block by block and brought to `gain`.
ffmpeg::ProgramAudio programAudio(const CompositionBuildResult& build, const AudioRenderOptions& mix,
                                  float gain, const std::stop_token& stop) {
    auto stream = std::make_shared<AudioMixStream>(build, mix, stop);
    auto scaled = std::make_shared<std::vector<float>>();
    return {.read = [stream, scaled, gain]() -> std::span<const float> {
                const auto block = stream->read();
                if (gain == 1.0f) return block;
                scaled->resize(block.size());
                std::transform(block.begin(), block.end(), scaled->begin(),
                               [gain](float s) { return s * gain; });
                return *scaled;
            },
            .sampleRate = mix.sampleRate};
}

}  // namespace

void to_json(Json& json, const RenderReport& report) {
    json = Json::object();
    json["outputPath"] = report.outputPath;
    json["durationSeconds"] = report.durationSeconds;
    json["frameCount"] = report.frameCount;
}

void fromJson(const JsonReader& reader, RenderReport& report) {
    report.outputPath = reader["outputPath"].get<std::string>();
    report.durationSeconds = reader["durationSeconds"].get<double>();
    report.frameCount = reader["frameCount"].get<std::int64_t>();
}

ExportEncoderSettings encoderSettings(ExportPresetName name) noexcept {
    using C = ExportVideoCodec;
    switch (name) {
        case ExportPresetName::passthrough:
            return {.codec = C::h264};
        case ExportPresetName::preset640x480:
            return {.codec = C::h264, .maxSize = PixelSize{640, 480}, .quality = 23, .speed = "fast"};
        case ExportPresetName::preset1280x720:
            return {.codec = C::h264, .maxSize = PixelSize{1280, 720}, .quality = 21, .speed = "fast"};
        case ExportPresetName::preset1920x1080:
            return {.codec = C::h264, .maxSize = PixelSize{1920, 1080}, .quality = 20, .speed = "fast"};
        case ExportPresetName::preset3840x2160:
            return {.codec = C::h264, .maxSize = PixelSize{3840, 2160}, .quality = 20, .speed = "fast"};
        case ExportPresetName::highestQuality:
            return {.codec = C::h264, .quality = 17, .speed = "medium"};
        case ExportPresetName::hevc1920x1080:
            return {.codec = C::hevc, .maxSize = PixelSize{1920, 1080}, .quality = 24, .speed = "fast"};
        case ExportPresetName::hevcHighestQuality:
            return {.codec = C::hevc, .quality = 20, .speed = "medium"};
        case ExportPresetName::proRes422LPCM:
            return {.codec = C::proRes422,
                    .quality = 0,
                    .pcmAudio = true,
                    .fileType = ExportFileType::quickTimeMovie};
    }
    return {};
}

PixelSize fittedOutputSize(PixelSize size, std::optional<PixelSize> maxSize) noexcept {
    double width = std::max(size.width, 1);
    double height = std::max(size.height, 1);
    if (maxSize && maxSize->width > 0 && maxSize->height > 0) {
        const double scale = std::min({1.0, maxSize->width / width, maxSize->height / height});
        width *= scale;
        height *= scale;
    }
    const auto even = [](double side) { return std::max(2, static_cast<int>(std::lround(side)) / 2 * 2); };
    return {even(width), even(height)};
}

ExportPresetName MP4Exporter::exportPresetName(ExportVideoCodec codec, ExportVideoBitrate bitrate,
                                               std::optional<RenderSize> renderSize) {
    const bool known = renderSize && renderSize->width > 0 && renderSize->height > 0;
    const auto height = known ? std::llround(renderSize->height) : 0;
    switch (codec) {
        case ExportVideoCodec::h264:
            if (known) {
                if (height <= 480) return ExportPresetName::preset640x480;
                if (height <= 720) return ExportPresetName::preset1280x720;
                if (height <= 1080) return ExportPresetName::preset1920x1080;
                return ExportPresetName::preset3840x2160;
            }
            switch (bitrate) {
                case ExportVideoBitrate::low:
                    return ExportPresetName::preset1280x720;
                case ExportVideoBitrate::high:
                    return ExportPresetName::highestQuality;
                case ExportVideoBitrate::max:
                    return ExportPresetName::preset3840x2160;
                case ExportVideoBitrate::automatic:
                case ExportVideoBitrate::medium:
                    return ExportPresetName::preset1920x1080;
            }
            return ExportPresetName::preset1920x1080;
        case ExportVideoCodec::hevc:
            if (known)
                return height <= 1080 ? ExportPresetName::hevc1920x1080
                                      : ExportPresetName::hevcHighestQuality;
            return bitrate == ExportVideoBitrate::low || bitrate == ExportVideoBitrate::medium
                       ? ExportPresetName::hevc1920x1080
                       : ExportPresetName::hevcHighestQuality;
        case ExportVideoCodec::proRes422:
            return ExportPresetName::proRes422LPCM;
        case ExportVideoCodec::gif:
            return ExportPresetName::preset640x480;
    }
    return ExportPresetName::preset640x480;
}

std::vector<EditPlanOperation> MP4Exporter::textOperations(const EditPlan& plan,
                                                           std::optional<ExportTimeRange> range) {
    const bool filtered = range && range->durationSeconds() > 0.05;
    std::vector<EditPlanOperation> out;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::text || !op.text) continue;
        if (filtered) {
            const double start = EditPlanResolver::parseTime(op.start).seconds();
            const double end = EditPlanResolver::parseTime(op.end).seconds();
            if (!(end > range->startSeconds && start < range->endSeconds)) continue;
        }
        out.push_back(op);
    }
    return out;
}

EditPlan MP4Exporter::trimmedPlanKeepingText(const EditPlan& plan,
                                             const std::vector<EditPlanOperation>& keptText) {
    EditPlan out = plan;
    std::erase_if(out.operations,
                  [](const auto& op) { return op.knownType() == EditPlanOperationType::text; });
    out.operations.insert(out.operations.end(), keptText.begin(), keptText.end());
    return out;
}

std::optional<TimeSpan> MP4Exporter::exportTimeSpan(std::optional<ExportTimeRange> range,
                                                    RationalTime compositionDuration) {
    if (!range || !range->isValid()) return std::nullopt;
    const RationalTime start = RationalTime::fromSeconds(range->startSeconds, RationalTime::secondsTimescale);
    const RationalTime end = RationalTime::fromSeconds(
        std::min(range->endSeconds, compositionDuration.seconds()), RationalTime::secondsTimescale);
    if (!(start < end)) return std::nullopt;
    return TimeSpan{start, end};
}

std::int64_t MP4Exporter::frameCount(double durationSeconds, std::string_view frameDuration) {
    const RationalTime frame = EditPlanResolver::parseTime(frameDuration);
    if (frame.value <= 0) return 0;
    const RationalTime length = RationalTime::fromSeconds(durationSeconds, RationalTime::workingTimescale)
                                    .convertedTo(frame.timescale, TimeRounding::towardZero);
    return length.value / frame.value;
}

void MP4Exporter::exportComposition(const CompositionBuildResult& build, const std::filesystem::path& to,
                                    const MP4ExportOptions& options, const ProgressCallback& progress,
                                    std::stop_token stop) {
    prepareOutput(to);
    const Composition& composition = build.composition;
    const TimeSpan range = exportTimeSpan(options.timeRange, composition.duration())
                               .value_or(TimeSpan{RationalTime::zero, composition.duration()});
    // A copy that gives up goes back to the start; the bar never does.
    double reported = 0.0;
    const ProgressCallback forward = [&](double share) {
        reported = std::max(reported, share);
        if (progress) progress(reported);
    };

    CompositionRenderer renderer(build, stop);
    const bool hasSound = !composition.tracksWithMediaType(CompositionMediaType::audio).empty();
    const AudioRenderOptions mix{.sampleRate = kAudioSampleRate, .range = range};
    std::optional<float> gain;
    // The level is measured once, in whichever session runs first; each session makes the sound it encodes.
    const auto mixSound = [&](const ProgressCallback& report,
                              const std::stop_token& token) -> std::optional<ffmpeg::ProgramAudio> {
        if (!hasSound) return std::nullopt;
        if (!gain)
            gain = loudnessGain(
                renderer.build(), mix, options.loudnessTarget, [&](double p) { report(p * kAudioShare); },
                token);
        return programAudio(renderer.build(), mix, *gain, token);
    };
    const auto afterSound = [](const ProgressCallback& report) {
        return [report](double p) { report(kAudioShare + p * (1.0 - kAudioShare)); };
    };

    const auto partial = partialFileBeside(to);
    const auto cleanUp = [&partial] {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
    };
    try {
        bool done = false;
        const ExportVideoSettings& video = options.videoSettings;
        if (!options.encoderOverride && video.codec == ExportVideoCodec::h264 &&
            video.bitrate == ExportVideoBitrate::automatic && !build.videoComposition) {
            done = runExportSession(
                [&](const ProgressCallback& report, std::stop_token token) {
                    const auto audio = mixSound(report, token);
                    return ffmpeg::copyMovie(composition, range, audio, partial, afterSound(report), token);
                },
                forward, stop);
        }
        if (!done) {
            const auto settings = options.encoderOverride.value_or(encoderSettings(
                exportPresetName(video.codec, video.bitrate,
                                 build.videoComposition
                                     ? std::optional(RenderSize{static_cast<double>(build.renderSize.width),
                                                                static_cast<double>(build.renderSize.height)})
                                     : std::nullopt)));
            runExportSession(
                [&](const ProgressCallback& report, std::stop_token token) {
                    const auto audio = mixSound(report, token);
                    ffmpeg::encodeMovie({.renderer = renderer,
                                         .range = range,
                                         .settings = settings,
                                         .outputSize = fittedOutputSize(build.renderSize, settings.maxSize),
                                         .audio = audio},
                                        partial, afterSound(report), token);
                    return true;
                },
                forward, stop);
        }
        std::filesystem::rename(partial, to);
    } catch (const std::filesystem::filesystem_error& e) {
        cleanUp();
        throw EngineError::readerFailed(
            fmt::format("Could not write {}: {}", to.string(), e.code().message()));
    } catch (...) {
        cleanUp();
        throw;
    }
}

RenderReport MP4Exporter::render(const EditPlan& plan, const std::filesystem::path& to,
                                 const MP4RenderOptions& options, const ProgressCallback& progress,
                                 std::stop_token stop) {
    const auto report = [&](double share) {
        if (progress) progress(share);
    };
    report(0.0);
    const auto text = textOperations(plan, options.timeRange);
    // The builder leaves the level alone; the finished mix is what is brought to the target.
    AudioFinishingOptions audio = options.audio;
    audio.loudnessTarget = LoudnessTarget::none;
    CompositionBuildOptions buildOptions;
    CompositionBuildResult build;
    if (options.burnInCaptions && !text.empty()) {
        report(0.04);
        // Text outside the range is dropped before it costs anything; the text layer draws the rest.
        buildOptions.includeTextAnimation = true;
        build = CompositionBuilder::build(trimmedPlanKeepingText(plan, text), audio, buildOptions, stop);
    } else {
        buildOptions.includeTextAnimation = !text.empty() && text.size() <= kMostAnimatedTextOperations;
        build = CompositionBuilder::build(plan, audio, buildOptions, stop);
    }
    report(0.34);
    exportComposition(
        build, to,
        {.timeRange = options.timeRange,
         .videoSettings = options.videoSettings,
         .loudnessTarget = options.audio.loudnessTarget},
        [&](double p) { report(std::min(std::max(p, 0.0) * 0.66 + 0.34, 1.0)); }, stop);

    double duration = 0.0;
    try {
        duration = ffmpeg::durationSeconds(*ffmpeg::openInput(to, &stop));
    } catch (...) {
        // Stopped (or unreadable) after the movie was put in place: it is not presented as done.
        std::error_code ignored;
        std::filesystem::remove(to, ignored);
        throw;
    }
    const std::int64_t frames = frameCount(duration, plan.timeline.resolvedFormat().frameDuration);
    report(1.0);
    return {to.string(), duration, frames};
}

}  // namespace morvane::engine
