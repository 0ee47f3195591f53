#include "morvane/intelligence/publish/auto_reframe_analyzer.hpp"

#include <algorithm>
#include <cmath>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/frame_sampler.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::intelligence {

using engine::EditPlanRect;
using engine::RationalTime;

const char* AutoReframeError::what() const noexcept {
    return kind_ == Kind::stillImage ? AutoReframeAnalyzer::stillImageMessage.data()
                                     : AutoReframeAnalyzer::undecodableMessage.data();
}

namespace AutoReframeAnalyzer {
namespace {

// A person's box is loose around the shoulders; a little more room keeps hair and hands in.
constexpr double kPersonPadX = 1.12;
constexpr double kPersonPadY = 1.18;
// A face becomes head and shoulders: this much wider, and this share of its height further down.
constexpr double kUpperBodyWidening = 2.2;
constexpr double kUpperBodyDrop = 0.4;
// Where the focus's top sits in a crop shorter than the frame: the head stays in the upper third.
constexpr double kHeadroomShare = 0.34;
// A sample this close to the clip's end would show nothing of it: steps that divide the clip's length
// exactly land there after rounding.
constexpr double kSameTimeSeconds = 1e-9;

double area(const EditPlanRect& r) {
    return r.width * r.height;
}

EditPlanRect clampedToFrame(double left, double top, double right, double bottom) {
    left = std::clamp(left, 0.0, 1.0);
    top = std::clamp(top, 0.0, 1.0);
    right = std::clamp(right, 0.0, 1.0);
    bottom = std::clamp(bottom, 0.0, 1.0);
    return {left, top, std::max(right - left, 0.0), std::max(bottom - top, 0.0)};
}

const SubjectDetection* largest(const std::vector<SubjectDetection>& detections, double floor) {
    const SubjectDetection* best = nullptr;
    for (const auto& d : detections) {
        if (d.confidence < floor) continue;
        if (best == nullptr || area(d.boundingBox) > area(best->boundingBox)) best = &d;
    }
    return best;
}

}  // namespace

EditPlanRect padded(const EditPlanRect& rect, double scaleX, double scaleY) {
    const double midX = rect.x + rect.width / 2;
    const double midY = rect.y + rect.height / 2;
    const double halfW = rect.width * scaleX / 2;
    const double halfH = rect.height * scaleY / 2;
    return clampedToFrame(midX - halfW, midY - halfH, midX + halfW, midY + halfH);
}

EditPlanRect expandedUpperBody(const EditPlanRect& face) {
    const double midX = face.x + face.width / 2;
    const double halfW = face.width * kUpperBodyWidening / 2;
    return clampedToFrame(midX - halfW, face.y, midX + halfW,
                          face.y + face.height + face.height * kUpperBodyDrop);
}

EditPlanRect subjectRect(const FrameDetections& detections, const std::optional<EditPlanRect>& previous) {
    if (const auto* person = largest(detections.people, personConfidenceFloor))
        return padded(person->boundingBox, kPersonPadX, kPersonPadY);
    if (const auto* face = largest(detections.faces, 0.0)) return expandedUpperBody(face->boundingBox);
    if (!detections.salientObjects.empty()) {
        return std::max_element(detections.salientObjects.begin(), detections.salientObjects.end(),
                                [](const auto& a, const auto& b) { return a.confidence < b.confidence; })
            ->boundingBox;
    }
    return previous.value_or(centreRect);
}

EditPlanRect subjectRect(SubjectDetector& detector, const engine::RGBAImage& image,
                         const std::optional<EditPlanRect>& previous) {
    return subjectRect(detector.detect(image), previous);
}

EditPlanRect cropRect(const EditPlanRect& focus, engine::PixelSize frameSize, double targetAspect) {
    const double W = frameSize.width;
    const double H = frameSize.height;
    if (!(W > 0.0) || !(H > 0.0)) return {0.0, 0.0, 1.0, 1.0};
    const bool narrower = targetAspect < W / H;
    const double cropW = narrower ? H * targetAspect : W;
    const double cropH = narrower ? H : W / std::max(targetAspect, 0.01);

    const double midX = W * (focus.x + focus.width / 2);
    const double x = std::clamp(midX - cropW / 2, 0.0, std::max(W - cropW, 0.0));
    double y = 0.0;
    if (std::abs(cropH - H) > 0.5) {
        const double share = H - cropH > 1.0 ? kHeadroomShare : 0.5;
        y = std::clamp(H * focus.y - cropH * share, 0.0, std::max(H - cropH, 0.0));
    }
    return {x / W, y / H, cropW / W, cropH / H};
}

std::vector<engine::ReframeKeyframe> keyframes(const engine::ProgramClip& clip, engine::PixelSize renderSize,
                                               double sampleInterval, const FrameLookup& lookup,
                                               const ProgressCallback& progress,
                                               const std::stop_token& stop) {
    const double step = sampleInterval >= minimumSampleInterval ? sampleInterval : minimumSampleInterval;
    const double rate = engine::ClipSpeed::needsScale(clip.playbackRate)
                            ? engine::ClipSpeed::resolved(clip.playbackRate)
                            : 1.0;
    const double sourceStart = clip.start.seconds();
    const double sourceLength = clip.end.seconds() - sourceStart;
    const double targetAspect =
        renderSize.height > 0 ? static_cast<double>(renderSize.width) / renderSize.height : 9.0 / 16.0;
    const double sampleCount = std::max(std::ceil(sourceLength / (step * rate)), 1.0);

    struct Kept {
        RationalTime programTime;
        EditPlanRect crop;
    };
    std::vector<Kept> kept;
    std::optional<EditPlanRect> previous;
    for (int k = 0;; ++k) {
        throwIfStopRequested(stop);
        const double programOffset = k * step;
        const double sourceOffset = programOffset * rate;
        if (sourceOffset >= sourceLength - kSameTimeSeconds) break;
        const double asked = sourceStart + sourceOffset;
        std::optional<LookedFrame> frame;
        try {
            frame = lookup(asked);
        } catch (const OperationCancelled&) {
            throw;
        } catch (const std::exception&) {
            // A damaged picture costs this sample only.
        }
        if (frame && (std::abs(frame->seconds - asked) <= preciseFrameSeconds || kept.empty())) {
            previous = subjectRect(frame->detections, previous);
            kept.push_back({clip.timelineStart.adding(
                                RationalTime::fromSeconds(programOffset, RationalTime::workingTimescale)),
                            cropRect(*previous, frame->size, targetAspect)});
        }
        if (progress) progress(std::min((k + 1) / sampleCount, 1.0));
    }
    if (kept.empty()) throw AutoReframeError::undecodable();

    const RationalTime clipEnd = clip.timelineStart.adding(clip.duration());
    std::vector<engine::ReframeKeyframe> result;
    result.reserve(kept.size());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        result.push_back({.programStart = i == 0 ? clip.timelineStart : kept[i].programTime,
                          .programEnd = i + 1 < kept.size() ? kept[i + 1].programTime : clipEnd,
                          .sourceRect = kept[i].crop});
    }
    return result;
}

std::vector<engine::ReframeKeyframe> keyframes(const std::filesystem::path& file,
                                               const engine::ProgramClip& clip, engine::PixelSize renderSize,
                                               double sampleInterval, const ProgressCallback& progress,
                                               const std::stop_token& stop) {
    std::optional<engine::FrameSampler> sampler;
    try {
        sampler.emplace(file, stop);
    } catch (const engine::EngineError& e) {
        if (e.kind() == engine::EngineError::Kind::missingFile) throw;
        throw AutoReframeError::undecodable();
    }
    if (sampler->isStill()) throw AutoReframeError::stillImage();
    SubjectDetector detector;
    return keyframes(
        clip, renderSize, sampleInterval,
        [&](double seconds) -> std::optional<LookedFrame> {
            auto frame = sampler->frameNear(seconds);
            if (!frame) return std::nullopt;
            return LookedFrame{frame->seconds, frame->image.size(), detector.detect(frame->image)};
        },
        progress, stop);
}

std::string readableOpenError(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const AutoReframeError& e) {
        return e.what();
    } catch (const engine::EngineError& e) {
        if (e.kind() == engine::EngineError::Kind::missingFile) return e.what();
    } catch (...) {
    }
    return std::string(undecodableMessage);
}

}  // namespace AutoReframeAnalyzer

}  // namespace morvane::intelligence
