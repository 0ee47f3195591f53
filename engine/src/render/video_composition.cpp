#include "morvane/engine/render/video_composition.hpp"

#include <algorithm>

namespace morvane::engine {
namespace {

double shareOf(RationalTime time, const TimeSpan& range) noexcept {
    const double length = range.duration().seconds();
    if (!(length > 0.0)) return 0.0;
    return std::clamp((time.seconds() - range.start.seconds()) / length, 0.0, 1.0);
}

}  // namespace

bool MorvaneCompositorLayer::needsTweening() const noexcept {
    return !transformStart.isClose(transformEnd, tweenTolerance);
}

AffineTransform MorvaneCompositorLayer::transform(RationalTime time, const TimeSpan& range) const noexcept {
    if (!needsTweening()) return transformStart;
    const double u = shareOf(time, range);
    const double f = u * u * (3.0 - 2.0 * u);
    const auto mix = [f](double a, double b) { return a + (b - a) * f; };
    const AffineTransform& s = transformStart;
    const AffineTransform& e = transformEnd;
    return {mix(s.a, e.a), mix(s.b, e.b), mix(s.c, e.c), mix(s.d, e.d), mix(s.tx, e.tx), mix(s.ty, e.ty)};
}

float MorvaneCompositorLayer::opacityAt(RationalTime time, const TimeSpan& range) const noexcept {
    if (opacity == opacityEnd) return opacity;
    const double u = shareOf(time, range);
    return static_cast<float>(opacity + (opacityEnd - opacity) * u);
}

const MorvaneCompositionInstruction* VideoComposition::instruction(RationalTime time) const noexcept {
    auto it = std::upper_bound(instructions.begin(), instructions.end(), time,
                               [](RationalTime t, const auto& i) { return t < i.timeRange.start; });
    if (it == instructions.begin()) return nullptr;
    --it;
    return time < it->timeRange.end ? &*it : nullptr;
}

}  // namespace morvane::engine
