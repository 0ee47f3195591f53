#include "morvane/app/timeline/timeline_consistency.hpp"

#include <set>

#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"

namespace morvane::app {

std::vector<std::string> checkConsistency(const TimelineDocument& timeline) {
    std::vector<std::string> problems;
    std::set<std::string> trackIDs;
    std::set<std::string> clipIDs;
    for (const auto& track : timeline.tracks) {
        if (!trackIDs.insert(track.id).second) problems.push_back("track \"" + track.id + "\" appears twice");
        const bool sequential = track.id == TimelineTrackIDs::source || track.id == TimelineTrackIDs::program;
        const TimelineClip* previous = nullptr;
        for (const auto& clip : track.clips) {
            const std::string where = "clip \"" + clip.label + "\" on \"" + track.id + "\"";
            if (!isUUID(clip.id)) problems.push_back(where + " has no UUID");
            if (!clipIDs.insert(clip.id).second) problems.push_back(where + " shares its id");
            for (const RationalTime t : {clip.sourceIn, clip.sourceOut, clip.timelineStart}) {
                if (!t.isValid()) problems.push_back(where + " has an invalid time");
            }
            if (clip.sourceOut < clip.sourceIn) problems.push_back(where + " ends before it starts");
            if (clip.assemblyRanges) {
                for (const auto& range : *clip.assemblyRanges) {
                    if (!(range.sourceIn < range.sourceOut))
                        problems.push_back(where + " has an empty assembly range");
                    if (range.sourceIn < clip.sourceIn || clip.sourceOut < range.sourceOut) {
                        problems.push_back(where + " has an assembly range outside its bounds");
                    }
                }
            }
            if (!clip.isTextLike() && clip.clipTimeMap().ranges().empty() && clip.sourceIn < clip.sourceOut) {
                problems.push_back(where + " maps no source time");
            }
            if (sequential && previous) {
                if (clip.timelineStart < previous->timelineStart)
                    problems.push_back(where + " is out of order");
                const RationalTime previousEnd =
                    previous->timelineStart.adding(TimelinePlanBridge::programDuration(*previous));
                if (clip.timelineStart < previousEnd)
                    problems.push_back(where + " overlaps the clip before it");
            }
            previous = &clip;
        }
    }
    return problems;
}

}  // namespace morvane::app
