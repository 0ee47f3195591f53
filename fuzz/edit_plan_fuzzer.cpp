// Fuzzes the edit plan reader and everything that reads a plan: any input must either be refused with a
// JsonDecodeError or give a plan that writes back to the same plan, resolves or fails with
// EngineError::invalidRationalTime exactly where checkTimes says it will, and lays out, maps and crops
// without crashing. Anything else stops the run.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "fuzz_check.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/layout/layout_resolver.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/time/clip_time_map.hpp"

namespace {

using namespace morvane;
using namespace morvane::engine;

using morvane::fuzz::broken;
using morvane::fuzz::check;

// Writing and reading again must give the same plan and the same bytes.
void roundTrip(const EditPlan& plan) {
    std::string bytes;
    try {
        bytes = EditPlanCoding::encode(plan);
    } catch (const EditPlanEncodeError& e) {
        std::fprintf(stderr, "%s\n", e.what());
        broken("a plan that was read cannot be written");
    }
    const EditPlan again = EditPlanCoding::decode(bytes);
    check(again == plan, "writing then reading changed the plan");
    check(EditPlanCoding::encode(again) == bytes, "writing the same plan twice gave different bytes");
}

// Lays out, maps and crops every clip the way composition would.
void exercise(const std::vector<ProgramClip>& clips, const std::vector<LayoutRegion>& regions) {
    for (std::size_t i = 0; i < clips.size(); ++i) {
        const ProgramClip& clip = clips[i];
        check(clip.start < clip.end, "a program clip with an empty or reversed span");
        check(i == 0 || clips[i - 1].trackID <= clip.trackID, "tracks out of name order");
        const RationalTime length = clip.duration();
        (void)LayoutResolver::resolvedTransform(clip, clip.timelineStart, regions, 16.0 / 9.0);
        (void)LayoutResolver::interpolatedSourceRect(clip, clip.timelineStart.adding(length), 0.5625);

        const ClipTimeMap map(clip.timelineStart, {{clip.start, clip.end}}, clip.playbackRate);
        (void)map.sourceTime(clip.timelineStart);
        (void)map.programTime(clip.end);
        if (const auto keyframes = clip.resolvedReframeKeyframes()) {
            const ClipTimeMap trimmed(clip.timelineStart, {{clip.start, clip.start.adding(length)}}, 2.0);
            (void)ClipTimeMap::remapKeyframes(*keyframes, map, trimmed);
        }
        if (clip.zoomRegions) (void)ClipTimeMap::remapZoomRegions(*clip.zoomRegions, map, map);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    EditPlan plan;
    try {
        plan = EditPlanCoding::decode(text, "fuzz.json");
    } catch (const JsonDecodeError&) {
        return 0;
    }
    roundTrip(plan);

    bool timesParse = true;
    try {
        EditPlanResolver::checkTimes(plan, "fuzz.json");
    } catch (const JsonDecodeError&) {
        timesParse = false;
    }
    try {
        const auto spans = EditPlanResolver::keepSpans(plan);
        const auto clips = EditPlanResolver::programClips(plan);
        const auto transitions = EditPlanResolver::transitions(plan);
        const auto regions = LayoutResolver::regions(plan);
        (void)plan.timeline.resolvedFormat();
        for (const auto& span : spans)
            check(span.start < span.end, "a keep span with an empty or reversed span");
        exercise(clips, regions);
        (void)transitions;
    } catch (const EngineError& e) {
        check(e.kind() == EngineError::Kind::invalidRationalTime, "a resolver failed with another error");
        check(!timesParse, "a resolver failed on a plan whose times all parse");
    }
    return 0;
}
