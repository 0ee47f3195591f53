#include "morvane/engine/composition/composition_builder.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <numbers>

#include "ffmpeg/source_tracks.hpp"
#include "morvane/engine/audio/audio_mix_builder.hpp"
#include "morvane/engine/audio/loudness_analyzer.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/video_composition_builder.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::engine::CompositionBuilder {
namespace {

constexpr double kLaneSlackSeconds = 0.001;  // a clip may start this much before its lane ends
constexpr double kStillScaleSeconds = 0.05;  // a still this close to its target length is not stretched

double programSeconds(const ProgramClip& clip) {
    const double source = clip.sourceDuration().seconds();
    if (!ClipSpeed::needsScale(clip.playbackRate)) return source;
    return source / ClipSpeed::resolved(clip.playbackRate);
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "file:///home/me/a%20b.mov" -> "/home/me/a b.mov"; nothing for a text that is not a file URL.
std::optional<std::string> filePathOfURL(std::string_view url) {
    constexpr std::string_view scheme = "file://";
    if (!url.starts_with(scheme)) return std::nullopt;
    url.remove_prefix(scheme.size());
    if (url.starts_with("localhost/")) url.remove_prefix(std::string_view("localhost").size());
    if (!url.starts_with("/")) return std::nullopt;
    std::string path;
    for (std::size_t i = 0; i < url.size(); ++i) {
        if (url[i] == '%' && i + 2 < url.size() && hexValue(url[i + 1]) >= 0 && hexValue(url[i + 2]) >= 0) {
            path.push_back(static_cast<char>(hexValue(url[i + 1]) * 16 + hexValue(url[i + 2])));
            i += 2;
        } else {
            path.push_back(url[i]);
        }
    }
    return path;
}

RationalTime secondsTime(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

AffineTransform uprightTransform(double degrees, double width, double height) {
    if (degrees == 0.0) return {};
    const auto turn = AffineTransform::rotation(degrees * std::numbers::pi / 180.0);
    const RectD box = turn.boundingBox({0, 0, width, height});
    AffineTransform out = turn.concatenating(AffineTransform::translation(-box.x, -box.y));
    // Quarter turns land on whole pixels; keep them exact.
    for (double* v : {&out.a, &out.b, &out.c, &out.d, &out.tx, &out.ty})
        *v = std::round(*v * 1e9) / 1e9;
    return out;
}

// Places a still (a picture, or a plate) of length `assetLength` over `target` at `at`.
void insertStillVideoAsset(CompositionTrack& track, const CompositionSource& source, RationalTime at,
                           RationalTime target, RationalTime assetLength) {
    const RationalTime inserted = std::min(assetLength, target);
    if (inserted <= RationalTime::zero) return;
    track.insertTimeRange({RationalTime::zero, inserted}, source, at);
    if (std::abs(target.seconds() - assetLength.seconds()) > kStillScaleSeconds)
        track.scaleTimeRange({at, at.adding(inserted)}, target);
}

struct Placer {
    Composition& composition;
    const std::map<std::string, CompositionSourceInfo>& infos;

    const CompositionSourceInfo& info(const ProgramClip& clip) const { return infos.at(clip.sourceID); }

    // Inserts the clip's range of the source's `type` track; returns the inserted source range's length.
    void insertRange(std::int32_t trackID, const ProgramClip& clip, RationalTime limit) {
        const CompositionSourceInfo& source = info(clip);
        RationalTime end = clip.end;
        if (limit > RationalTime::zero) end = std::min(end, limit);
        if (!(clip.start < end)) return;
        CompositionTrack& track = *composition.mutableTrack(trackID);
        track.insertTimeRange({clip.start, end}, CompositionSource::media(source.path, clip.sourceID),
                              clip.timelineStart);
        if (ClipSpeed::needsScale(clip.playbackRate)) {
            const RationalTime length = end.subtracting(clip.start);
            track.scaleTimeRange({clip.timelineStart, clip.timelineStart.adding(length)},
                                 ClipSpeed::programDuration(length, clip.playbackRate));
        }
    }

    void insertAudio(std::optional<std::int32_t>& audioTrack, const ProgramClip& clip) {
        if (!info(clip).hasAudio) return;
        if (!audioTrack) audioTrack = composition.addMutableTrack(CompositionMediaType::audio);
        insertRange(*audioTrack, clip, info(clip).audioDuration);
    }

    // The video and audio of a clip on a video track and its audio partner; false when nothing was placed.
    bool insertMediaClip(const ProgramClip& clip, std::int32_t videoTrack,
                         std::optional<std::int32_t>& audioTrack, bool& didSetTransform) {
        const CompositionSourceInfo& source = info(clip);
        if (source.isStill) {
            insertStillVideoAsset(*composition.mutableTrack(videoTrack),
                                  CompositionSource::still(source.path, clip.sourceID), clip.timelineStart,
                                  clip.duration(), clip.duration());
            return true;
        }
        if (source.hasVideo) {
            const std::size_t before = composition.track(videoTrack)->segments.size();
            insertRange(videoTrack, clip, source.videoDuration);
            if (!didSetTransform) {
                composition.mutableTrack(videoTrack)->preferredTransform = source.preferredTransform;
                didSetTransform = true;
            }
            insertAudio(audioTrack, clip);
            return composition.track(videoTrack)->segments.size() != before;
        }
        if (!source.hasAudio) return false;
        insertAudio(audioTrack, clip);
        return true;
    }
};

VideoCompositionBuilder::TrackContext trackContext(
    std::int32_t track, std::vector<ProgramClip> clips,
    const std::map<std::string, CompositionSourceInfo>& infos) {
    VideoCompositionBuilder::TrackContext context{.track = track, .clips = std::move(clips)};
    for (const auto& clip : context.clips) {
        const auto& info = infos.at(clip.sourceID);
        if (!info.hasVideo) continue;
        context.naturalSizes[clip.sourceID] = info.naturalSize;
        context.preferredTransforms[clip.sourceID] = info.preferredTransform;
    }
    return context;
}

}  // namespace

std::string resolvedURL(const EditPlanSource& source, const std::map<std::string, std::string>& overrides) {
    if (const auto it = overrides.find(source.id); it != overrides.end()) {
        std::error_code error;
        const std::string path = filePathOfURL(it->second).value_or(it->second);
        if (std::filesystem::is_regular_file(path, error)) return path;
    }
    return filePathOfURL(source.url).value_or(source.url);
}

const EditPlanSource& requiredSource(const ProgramClip& clip,
                                     const std::map<std::string, const EditPlanSource*>& sourcesByID) {
    const auto it = sourcesByID.find(clip.sourceID);
    if (it == sourcesByID.end())
        throw EngineError::decodeFailed("Clip references missing source " + clip.sourceID);
    return *it->second;
}

std::vector<ProgramClip> overlayVideoClips(std::span<const ProgramClip> clips,
                                           const std::map<std::string, const EditPlanSource*>& sourcesByID,
                                           bool includeImages) {
    std::vector<ProgramClip> out;
    for (const auto& clip : clips) {
        if (clip.trackID != "overlay" || clip.type == "text") continue;
        if (!includeImages && !sourcesByID.empty()) {
            const auto it = sourcesByID.find(clip.sourceID);
            if (it != sourcesByID.end() && isImageFile(resolvedURL(*it->second, {}))) continue;
        }
        out.push_back(clip);
    }
    return out;
}

std::vector<std::vector<ProgramClip>> packNonOverlappingLanes(std::span<const ProgramClip> clips) {
    std::vector<ProgramClip> sorted(clips.begin(), clips.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const ProgramClip& a, const ProgramClip& b) {
        return a.timelineStart < b.timelineStart;
    });
    std::vector<std::vector<ProgramClip>> lanes;
    std::vector<double> laneEnds;
    for (auto& clip : sorted) {
        const double start = clip.timelineStart.seconds();
        const double end = start + programSeconds(clip);
        std::size_t lane = 0;
        while (lane < laneEnds.size() && laneEnds[lane] > start + kLaneSlackSeconds)
            ++lane;
        if (lane == laneEnds.size()) {
            lanes.emplace_back();
            laneEnds.push_back(end);
        }
        laneEnds[lane] = end;
        lanes[lane].push_back(std::move(clip));
    }
    return lanes;
}

double auxiliaryTimelineDuration(std::span<const ProgramClip> clips) {
    double latest = 0.0;
    for (const auto& clip : clips)
        latest = std::max(latest, clip.timelineStart.seconds() + programSeconds(clip));
    return latest;
}

std::string solidPlateKey(const BackgroundColor& color) {
    return fmt::format("{:.3f}-{:.3f}-{:.3f}", color.red, color.green, color.blue);
}

std::map<std::string, CompositionSourceInfo> loadSourceMetadata(
    const std::map<std::string, const EditPlanSource*>& sourcesByID, std::span<const std::string> sourceIDs,
    const std::map<std::string, std::string>& overrides, std::stop_token stop) {
    std::map<std::string, CompositionSourceInfo> out;
    for (const auto& id : sourceIDs) {
        if (out.contains(id)) continue;
        throwIfStopRequested(stop);
        const EditPlanSource& source = *sourcesByID.at(id);
        CompositionSourceInfo info{.path = resolvedURL(source, overrides)};
        const auto tracks = ffmpeg::probeSourceTracks(info.path);
        info.hasVideo = tracks.hasVideo;
        info.hasAudio = tracks.hasAudio;
        info.isStill = tracks.isStill;
        info.naturalSize = {static_cast<double>(tracks.width), static_cast<double>(tracks.height)};
        info.preferredTransform = uprightTransform(tracks.rotationDegrees, tracks.width, tracks.height);
        info.videoDuration = secondsTime(tracks.videoSeconds);
        info.audioDuration = secondsTime(tracks.audioSeconds);
        out.emplace(id, std::move(info));
    }
    return out;
}

CompositionBuildResult build(const EditPlan& plan, const AudioFinishingOptions& options,
                             const CompositionBuildOptions& buildOptions, std::stop_token stop) {
    const auto clips = EditPlanResolver::programClips(plan);
    const ProjectFormat format = plan.timeline.resolvedFormat();
    std::map<std::string, const EditPlanSource*> sourcesByID;
    for (const auto& source : plan.sources)
        sourcesByID.emplace(source.id, &source);

    std::vector<ProgramClip> primary;
    std::vector<ProgramClip> audio;
    std::vector<ProgramClip> textClips;
    for (const auto& clip : clips) {
        const bool isText = clip.type == "text";
        if ((clip.trackID == "primary" || clip.trackID == "program") && !isText) primary.push_back(clip);
        if (clip.trackID == "audio") audio.push_back(clip);
        if (clip.trackID == "captions" && isText) textClips.push_back(clip);
    }
    const auto overlays =
        overlayVideoClips(clips, sourcesByID, buildOptions.includeImageOverlaysInComposition);
    if (primary.empty() && overlays.empty() && audio.empty())
        throw EngineError::decodeFailed("Edit plan has no timeline clips");

    std::vector<std::string> used;
    for (const auto* group : std::array<const std::vector<ProgramClip>*, 3>{&primary, &overlays, &audio}) {
        for (const auto& clip : *group) {
            static_cast<void>(requiredSource(clip, sourcesByID));
            used.push_back(clip.sourceID);
        }
    }
    const auto infos = loadSourceMetadata(sourcesByID, used, buildOptions.proxySourceOverrides, stop);

    CompositionBuildResult result;
    result.renderSize = {format.width, format.height};
    result.frameDuration = EditPlanResolver::parseTime(format.frameDuration);
    Composition& composition = result.composition;
    Placer placer{composition, infos};

    const std::int32_t primaryVideo = composition.addMutableTrack(CompositionMediaType::video, 1);
    std::optional<std::int32_t> primaryAudio;
    bool didSetTransform = false;
    for (const auto& clip : primary)
        placer.insertMediaClip(clip, primaryVideo, primaryAudio, didSetTransform);

    // Audio and overlays that outlast the primary picture play over a plate.
    std::vector<ProgramClip> auxiliary = audio;
    auxiliary.insert(auxiliary.end(), overlays.begin(), overlays.end());
    const double auxiliaryEnd = auxiliaryTimelineDuration(auxiliary);
    const RationalTime primaryEnd = composition.track(primaryVideo)->duration();
    if (auxiliaryEnd - primaryEnd.seconds() > shortestPlateSeconds ||
        (primary.empty() && auxiliaryEnd > 0.0)) {
        const RationalTime length = secondsTime(auxiliaryEnd).subtracting(primaryEnd);
        insertStillVideoAsset(*composition.mutableTrack(primaryVideo),
                              CompositionSource::solidColor(plateColor), primaryEnd, length, length);
    }

    std::vector<VideoCompositionBuilder::TrackContext> overlayContexts;
    std::vector<std::pair<std::int32_t, std::vector<ProgramClip>>> overlayAudio;
    if (buildOptions.includeVideoOverlaysInComposition) {
        for (auto& lane : packNonOverlappingLanes(overlays)) {
            const std::int32_t video = composition.addMutableTrack(CompositionMediaType::video);
            std::optional<std::int32_t> laneAudio;
            bool laneTransform = false;
            std::vector<ProgramClip> placed;
            for (const auto& clip : lane) {
                if (placer.insertMediaClip(clip, video, laneAudio, laneTransform)) placed.push_back(clip);
            }
            if (laneAudio) overlayAudio.emplace_back(*laneAudio, placed);
            overlayContexts.push_back(trackContext(video, std::move(placed), infos));
        }
    }

    std::vector<std::pair<std::int32_t, std::vector<ProgramClip>>> musicLanes;
    for (auto& lane : packNonOverlappingLanes(audio)) {
        std::optional<std::int32_t> track;
        std::vector<ProgramClip> placed;
        for (const auto& clip : lane) {
            if (!infos.at(clip.sourceID).hasAudio) continue;
            placer.insertAudio(track, clip);
            placed.push_back(clip);
        }
        if (track) musicLanes.emplace_back(*track, std::move(placed));
    }
    throwIfStopRequested(stop);

    AudioFinishingOptions finishing = options;
    if (options.loudnessTarget != LoudnessTarget::none && !primary.empty() &&
        infos.at(primary.front().sourceID).hasAudio) {
        const auto measured = LoudnessAnalyzer::analyze(infos.at(primary.front().sourceID).path,
                                                        options.loudnessTarget, std::nullopt, stop);
        if (measured)
            finishing.primaryLoudnessGain *= static_cast<float>(std::pow(10.0, measured->gainDB / 20.0));
    }
    AudioMix mix;
    if (primaryAudio) {
        AudioMixInputParameters p{.trackID = *primaryAudio};
        AudioMixBuilder::applyPrimaryEnvelope(p, primary, result.frameDuration, finishing);
        mix.inputParameters.push_back(std::move(p));
    }
    for (const auto& [track, laneClips] : overlayAudio) {
        AudioMixInputParameters p{.trackID = track};
        AudioMixBuilder::applyOverlayEnvelope(p, laneClips);
        mix.inputParameters.push_back(std::move(p));
    }
    for (const auto& [track, laneClips] : musicLanes) {
        AudioMixInputParameters p{.trackID = track};
        for (const auto& clip : laneClips)
            AudioMixBuilder::applyMusicEnvelope(p, clip, finishing);
        mix.inputParameters.push_back(std::move(p));
    }
    if (!mix.inputParameters.empty()) result.audioMix = std::move(mix);

    result.videoComposition =
        VideoCompositionBuilder::build(plan, composition, trackContext(primaryVideo, primary, infos),
                                       overlayContexts, textClips, buildOptions.includeTextAnimation);
    return result;
}

}  // namespace morvane::engine::CompositionBuilder
