#pragma once

/// Auto-reframe: a landscape clip cropped to a portrait canvas that follows its subject. The clip's frames
/// are sampled a few times a second; in each the subject is found (a person, else a face, else the most
/// salient region), and the crop that keeps it in frame becomes a keyframe held until the next sample.
///
///     auto clip = TimelinePlanBridge::programClip(timelineClip, "source");
///     auto keyframes = AutoReframeAnalyzer::keyframes(file, clip, {1080, 1920});   // every 0.5 s
///     keyframes.front().sourceRect;   // {x 0.34, y 0, width 0.32, height 1}: the person, full height
///
/// Rectangles are normalised to the frame, origin top left, as crops (`EditPlanRect`) are everywhere.

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/render/rgba_image.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::intelligence {

/// Why a clip can't be reframed; `what()` is the text the user reads.
class AutoReframeError : public std::exception {
  public:
    enum class Kind { stillImage, undecodable };

    [[nodiscard]] static AutoReframeError stillImage() { return AutoReframeError(Kind::stillImage); }
    [[nodiscard]] static AutoReframeError undecodable() { return AutoReframeError(Kind::undecodable); }
    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] const char* what() const noexcept override;

  private:
    explicit AutoReframeError(Kind kind) : kind_(kind) {}
    Kind kind_;
};

/// A region a detector found and how sure it is, 0 to 1.
struct SubjectDetection {
    engine::EditPlanRect boundingBox;
    double confidence = 0.0;
    friend bool operator==(const SubjectDetection&, const SubjectDetection&) = default;
};

/// What the detectors found in one picture.
struct FrameDetections {
    std::vector<SubjectDetection> people;  ///< upper bodies
    std::vector<SubjectDetection> faces;   ///< frontal faces
    std::vector<SubjectDetection> salientObjects;
};

/// Finds people, faces and salient regions in pictures. Loading its cascades takes a moment: one detector
/// serves a whole analysis. Not for use from two threads at once.
class SubjectDetector {
  public:
    /// Loads the upper-body and frontal-face Haar cascades from `cascadeFolder`. A cascade that is
    /// missing or unreadable leaves its detector finding nothing (`hasCascades` says so).
    explicit SubjectDetector(const std::filesystem::path& cascadeFolder = defaultCascadeFolder());
    ~SubjectDetector();
    SubjectDetector(const SubjectDetector&) = delete;
    SubjectDetector& operator=(const SubjectDetector&) = delete;

    /// Where the system keeps OpenCV's Haar cascades.
    [[nodiscard]] static std::filesystem::path defaultCascadeFolder();
    /// Whether both cascades loaded.
    [[nodiscard]] bool hasCascades() const noexcept;

    /// Everything found in `image`: people and faces above their detectors' own floors, and salient
    /// regions.
    [[nodiscard]] FrameDetections detect(const engine::RGBAImage& image);

    /// The salient regions of `image` by its spectral residual (the part of the log spectrum that a
    /// smooth spectrum doesn't explain), most confident first; confidence is the region's share of the
    /// picture's saliency. A flat picture has none.
    [[nodiscard]] static std::vector<SubjectDetection> salientObjects(const engine::RGBAImage& image);

  private:
    struct Cascades;
    std::unique_ptr<Cascades> cascades_;
};

namespace AutoReframeAnalyzer {

/// The shortest step between samples, in seconds of program time.
inline constexpr double minimumSampleInterval = 0.18;
/// The step used when the caller has no opinion.
inline constexpr double defaultSampleInterval = 0.5;
/// A picture further than this from the time asked is used only while no picture was kept.
inline constexpr double preciseFrameSeconds = 0.08;
/// People the upper-body detector is less sure of are ignored: its weaker hits are mostly textures
/// (shelves, curtains) that happen to have a head-and-shoulders outline.
inline constexpr double personConfidenceFloor = 0.5;
/// The subject when nothing was ever found: the middle of the frame.
inline constexpr engine::EditPlanRect centreRect{0.25, 0.25, 0.5, 0.5};

inline constexpr std::string_view stillImageMessage = "Auto-reframe needs a video clip, not a still image.";
inline constexpr std::string_view undecodableMessage =
    "Couldn’t decode this video for Auto-reframe. H.264 or HEVC MP4 works most reliably.";

/// A picture looked at for one sample: the time it is shown at, its size and what was found in it.
struct LookedFrame {
    double seconds = 0.0;
    engine::PixelSize size;
    FrameDetections detections;
};

/// Gives the picture nearest a source time, or nothing when there is none to use; may throw for a
/// picture that can't be decoded (that sample is skipped).
using FrameLookup = std::function<std::optional<LookedFrame>(double sourceSeconds)>;

/// The crop keyframes that follow the subject of `clip` (its source range, speed and program position)
/// in `file`, for a canvas of `renderSize`. A step below 0.18 s counts as 0.18 s. Throws
/// `AutoReframeError` (a still image; nothing decodable) and `OperationCancelled`.
[[nodiscard]] std::vector<engine::ReframeKeyframe> keyframes(const std::filesystem::path& file,
                                                             const engine::ProgramClip& clip,
                                                             engine::PixelSize renderSize,
                                                             double sampleInterval = defaultSampleInterval,
                                                             const ProgressCallback& progress = {},
                                                             const std::stop_token& stop = {});

/// The same over pictures given by `lookup`: samples every `sampleInterval` (at least 0.18 s) of program
/// time, that is source time divided by the clip's rate; each kept picture gives one keyframe held until
/// the next kept one, the first starting at the clip's start and the last ending at its end. A picture
/// more than 0.08 s from its time is used only while none was kept. Where a picture shows nothing the
/// previous subject carries on. Throws `AutoReframeError::undecodable` when no picture was usable, and
/// `OperationCancelled`.
[[nodiscard]] std::vector<engine::ReframeKeyframe> keyframes(const engine::ProgramClip& clip,
                                                             engine::PixelSize renderSize,
                                                             double sampleInterval, const FrameLookup& lookup,
                                                             const ProgressCallback& progress = {},
                                                             const std::stop_token& stop = {});

/// The subject among `detections`: the largest person above the confidence floor, padded; else the
/// largest face as an upper body; else the most confident salient region; else `previous`; else the
/// centre.
[[nodiscard]] engine::EditPlanRect subjectRect(const FrameDetections& detections,
                                               const std::optional<engine::EditPlanRect>& previous);
/// The subject of `image`, found by `detector`.
[[nodiscard]] engine::EditPlanRect subjectRect(SubjectDetector& detector, const engine::RGBAImage& image,
                                               const std::optional<engine::EditPlanRect>& previous);

/// The crop of a `frameSize` frame with the aspect `targetAspect` (width / height) that holds `focus`:
/// full height and centred on it when the target is narrower than the frame, else full width with the
/// focus's top a third of the way down; kept inside the frame.
[[nodiscard]] engine::EditPlanRect cropRect(const engine::EditPlanRect& focus, engine::PixelSize frameSize,
                                            double targetAspect);

/// `rect` scaled about its centre by `scaleX` and `scaleY`, then clamped to the frame.
[[nodiscard]] engine::EditPlanRect padded(const engine::EditPlanRect& rect, double scaleX, double scaleY);

/// A face's rectangle grown to the head and shoulders: 2.2 times as wide, reaching down by 0.4 of its
/// height, clamped to the frame.
[[nodiscard]] engine::EditPlanRect expandedUpperBody(const engine::EditPlanRect& face);

/// What a failure to open or decode a clip says to the user: an `AutoReframeError`'s or a missing file's
/// own text, and the decoding message for any other failure.
[[nodiscard]] std::string readableOpenError(const std::exception_ptr& failure);

}  // namespace AutoReframeAnalyzer

}  // namespace morvane::intelligence
