#pragma once

/// From an edit plan to something playable: the tracks of a composition, its audio mix and its per-frame
/// instructions. Runs for the preview and for every export.
///
///     EditPlan plan = EditPlanCoding::resolveSourceURLs(EditPlanCoding::decode(bytes), planFolder);
///     CompositionBuildResult result = CompositionBuilder::build(plan, AudioFinishingOptions::preview());
///     CompositionRenderer renderer(result);                    // composition_renderer.hpp
///
/// Primary clips ("primary" and "program" tracks) share one video and one audio track; overlapping overlay
/// and audio clips are packed into lanes, one track each; a speed change scales the inserted range; what
/// reaches past the primary picture gets a black plate under it.

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "morvane/engine/audio/audio_finishing_options.hpp"
#include "morvane/engine/audio/audio_mix.hpp"
#include "morvane/engine/composition/composition.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/render/video_composition.hpp"

namespace morvane::engine {

/// What a build gives.
struct CompositionBuildResult {
    Composition composition;
    std::optional<AudioMix> audioMix;                  ///< absent when no audio track has an envelope
    std::optional<VideoComposition> videoComposition;  ///< absent when every frame is a source as it stands
    PixelSize renderSize{1920, 1080};                  ///< the plan's canvas
    RationalTime frameDuration{1001, 30000};           ///< the plan's frame

    friend bool operator==(const CompositionBuildResult&, const CompositionBuildResult&) = default;
};

/// What a build places beside the primary program.
struct CompositionBuildOptions {
    bool includeTextAnimation = false;
    bool includeImageOverlaysInComposition = true;
    bool includeVideoOverlaysInComposition = true;
    /// Files to play instead of a source's own (proxies), by source id; used only while the file exists.
    std::map<std::string, std::string> proxySourceOverrides;
};

/// What the builder learns of a source before placing it.
struct CompositionSourceInfo {
    std::string path;  ///< the file read
    bool hasVideo = false;
    bool hasAudio = false;
    bool isStill = false;                ///< a single picture
    RenderSize naturalSize;              ///< of the picture as decoded
    AffineTransform preferredTransform;  ///< turns the picture upright, landing at the origin
    RationalTime videoDuration;
    RationalTime audioDuration;
};

/// The lengths a lane packs by.
struct LaneExtent {
    double startSeconds = 0.0;
    double endSeconds = 0.0;
};

namespace CompositionBuilder {

/// The plate colour of program time with no picture.
inline constexpr BackgroundColor plateColor{0.0, 0.0, 0.0, 1.0};
/// A plate shorter than this is not worth placing.
inline constexpr double shortestPlateSeconds = 0.1;

/// Builds the composition of `plan` (its source URLs already resolved). Throws `EngineError` with
/// "Invalid rational time: " and the text, "Decode failed: Clip references missing source " and the id,
/// "Decode failed: Edit plan has no timeline clips", `missingFile` for a source that is not there,
/// `readerFailed` for one that can't be read; `OperationCancelled` on a stop. Nothing is left behind by
/// a failed build.
[[nodiscard]] CompositionBuildResult build(const EditPlan& plan, const AudioFinishingOptions& options,
                                           const CompositionBuildOptions& buildOptions = {},
                                           std::stop_token stop = {});

/// The file to read for `source`: its override when one is given and the file exists, else the source's
/// url as a file URL ("file:///a%20b.mov" -> "/a b.mov") or, failing that, as a path.
[[nodiscard]] std::string resolvedURL(const EditPlanSource& source,
                                      const std::map<std::string, std::string>& overrides);

/// The source of `clip`. Throws `EngineError::decodeFailed` "Clip references missing source " + id.
[[nodiscard]] const EditPlanSource& requiredSource(
    const ProgramClip& clip, const std::map<std::string, const EditPlanSource*>& sourcesByID);

/// The clips on track "overlay" that are not text; without `includeImages` (and with a source table),
/// also those whose source is a picture file.
[[nodiscard]] std::vector<ProgramClip> overlayVideoClips(
    std::span<const ProgramClip> clips, const std::map<std::string, const EditPlanSource*>& sourcesByID,
    bool includeImages);

/// Clips sorted stably by program start, each put in the first lane that ends no more than 0.001 s after
/// the clip starts (its program length at its speed), or in a new lane. One list per lane.
[[nodiscard]] std::vector<std::vector<ProgramClip>> packNonOverlappingLanes(
    std::span<const ProgramClip> clips);

/// The latest end among `clips` in seconds (speed applied); 0.0 without clips.
[[nodiscard]] double auxiliaryTimelineDuration(std::span<const ProgramClip> clips);

/// Whether a file is a picture rather than a movie or a sound, by its extension.
[[nodiscard]] bool isImageFile(const std::string& path);

/// The cache key of a plate of `color`: "%.3f-%.3f-%.3f" of its red, green and blue.
[[nodiscard]] std::string solidPlateKey(const BackgroundColor& color);

/// Reads what the builder needs of each source in `sourceIDs`, once each.
[[nodiscard]] std::map<std::string, CompositionSourceInfo> loadSourceMetadata(
    const std::map<std::string, const EditPlanSource*>& sourcesByID, std::span<const std::string> sourceIDs,
    const std::map<std::string, std::string>& overrides, std::stop_token stop = {});

}  // namespace CompositionBuilder

}  // namespace morvane::engine
