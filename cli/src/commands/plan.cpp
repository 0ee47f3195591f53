// morvane plan show PLAN.json [--json]: the program a plan resolves to, track by track, and its transitions.
// morvane plan check PLAN.json: whether a plan can be used, and where it fails when it can't.

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "cli.hpp"
#include "morvane/engine/layout/layout_resolver.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::cli {
namespace {

using namespace morvane::engine;

// Everything both verbs need: the plan read, every time it holds checked, then resolved.
struct ResolvedPlan {
    EditPlan plan;
    ProjectFormat format;
    std::vector<ProgramClip> clips;  // grouped by track, tracks in name order
    EditPlanTransitionTable transitions;
    std::vector<LayoutRegion> layouts;
};

ResolvedPlan resolvePlan(const std::string& path) {
    ResolvedPlan out;
    out.plan = readPlanFile(path);
    out.format = out.plan.timeline.resolvedFormat();
    out.clips = EditPlanResolver::programClips(out.plan);
    out.transitions = EditPlanResolver::transitions(out.plan);
    out.layouts = LayoutResolver::regions(out.plan);
    return out;
}

std::string time(RationalTime t) {
    return t.formatted(false);
}

std::string secondsText(RationalTime t) {
    return fmt::format("{:.3f}", t.seconds());
}

std::size_t trackCount(const std::vector<ProgramClip>& clips) {
    std::set<std::string> tracks;
    for (const auto& clip : clips)
        tracks.insert(clip.trackID);
    return tracks.size();
}

Json clipJson(const ProgramClip& clip) {
    Json json = Json::object();
    json["type"] = clip.type;
    json["sourceID"] = clip.sourceID;
    json["start"] = time(clip.start);
    json["end"] = time(clip.end);
    json["timelineStart"] = time(clip.timelineStart);
    json["duration"] = time(clip.duration());
    json["playbackRate"] = clip.playbackRate;
    if (clip.label) json["label"] = *clip.label;
    if (clip.slotID) json["slotID"] = *clip.slotID;
    return json;
}

Json planJson(const std::string& path, const ResolvedPlan& r) {
    Json json = Json::object();
    json["plan"] = path;
    json["version"] = r.plan.version;
    json["format"] = r.format;
    json["sources"] = Json::array();
    for (const auto& source : r.plan.sources)
        json["sources"].push_back({{"id", source.id}, {"url", source.url}, {"vfr", source.vfr}});
    json["tracks"] = Json::array();
    for (const auto& clip : r.clips) {
        if (json["tracks"].empty() || json["tracks"].back()["track"] != clip.trackID)
            json["tracks"].push_back({{"track", clip.trackID}, {"clips", Json::array()}});
        json["tracks"].back()["clips"].push_back(clipJson(clip));
    }
    json["transitions"] = Json::array();
    for (const auto& [at, transition] : r.transitions)
        json["transitions"].push_back(
            {{"at", time(at)}, {"kind", transition.kind}, {"duration", transition.duration}});
    json["layouts"] = Json::array();
    for (const auto& region : r.layouts) {
        json["layouts"].push_back({{"layoutID", region.layoutID},
                                   {"start", time(region.timelineStart)},
                                   {"end", time(region.timelineEnd)}});
    }
    return json;
}

void printPlan(const std::string& path, const ResolvedPlan& r) {
    fmt::print("Plan {}: version {}, {} at {}, {} sources, {} operations\n", path, r.plan.version,
               r.format.renderSizeToken(), r.format.frameDuration, r.plan.sources.size(),
               r.plan.operations.size());
    for (const auto& source : r.plan.sources)
        fmt::print("  {:<8} {}{}\n", source.id, source.url, source.vfr ? " (variable frame rate)" : "");

    std::string currentTrack;
    for (const auto& clip : r.clips) {
        if (clip.trackID != currentTrack || &clip == &r.clips.front()) {
            currentTrack = clip.trackID;
            const auto count = std::count_if(r.clips.begin(), r.clips.end(),
                                             [&](const ProgramClip& c) { return c.trackID == currentTrack; });
            fmt::print("\nTrack {}: {} clip{}\n", currentTrack, count, count == 1 ? "" : "s");
            fmt::print("  {:<6} {:<10} {:<21} {:>10} {:>10} {:>7}\n", "TYPE", "SOURCE", "SOURCE RANGE (s)",
                       "AT (s)", "LENGTH (s)", "RATE");
        }
        fmt::print("  {:<6} {:<10} {:<21} {:>10} {:>10} {:>7}{}\n", clip.type, clip.sourceID,
                   secondsText(clip.start) + " – " + secondsText(clip.end), secondsText(clip.timelineStart),
                   secondsText(clip.duration()), ClipSpeed::displayLabel(clip.playbackRate),
                   clip.label ? "  " + *clip.label : std::string());
    }
    if (r.clips.empty()) fmt::print("\nNo clips.\n");

    fmt::print("\nTransitions:{}\n", r.transitions.empty() ? " none" : "");
    for (const auto& [at, transition] : r.transitions)
        fmt::print("  at {} s ({}): {}, {}\n", secondsText(at), time(at), transition.kind,
                   transition.duration);
    if (!r.layouts.empty()) {
        fmt::print("\nLayouts:\n");
        for (const auto& region : r.layouts) {
            fmt::print(
                "  {} – {} s: {}\n", secondsText(region.timelineStart), secondsText(region.timelineEnd),
                LayoutPresets::definition(region.layoutID) ? region.layoutID
                                                           : region.layoutID + " (unknown: full frame)");
        }
    }
}

}  // namespace

void addPlanVerb(CLI::App& app, RunState& /*state*/) {
    auto* plan =
        app.add_subcommand("plan", "Read an edit plan: what it resolves to, and whether it is usable");
    plan->require_subcommand(1);

    struct ShowOptions {
        std::string path;
        bool json = false;
    };
    auto show = std::make_shared<ShowOptions>();
    auto* showVerb = plan->add_subcommand("show", "Print the program clips per track and the transitions");
    showVerb->add_option("plan", show->path, "The plan (JSON)")->required();
    showVerb->add_flag("--json", show->json, "Print the result as JSON");
    showVerb->callback([show] {
        const ResolvedPlan resolved = resolvePlan(show->path);
        if (show->json) {
            printJson(planJson(show->path, resolved));
        } else {
            printPlan(show->path, resolved);
        }
    });

    auto checkPath = std::make_shared<std::string>();
    auto* checkVerb = plan->add_subcommand("check", "Exit 0 for a usable plan; otherwise say where it fails");
    checkVerb->add_option("plan", *checkPath, "The plan (JSON)")->required();
    checkVerb->callback([checkPath] {
        const ResolvedPlan resolved = resolvePlan(*checkPath);
        const auto tracks = trackCount(resolved.clips);
        fmt::print(
            "{}: ok: {} operations, {} program clips on {} track{}, {} transition{}, {} layout region{}\n",
            *checkPath, resolved.plan.operations.size(), resolved.clips.size(), tracks,
            tracks == 1 ? "" : "s", resolved.transitions.size(), resolved.transitions.size() == 1 ? "" : "s",
            resolved.layouts.size(), resolved.layouts.size() == 1 ? "" : "s");
    });
}

}  // namespace morvane::cli
