// morvane timeline show|split|trim|delete|move|speed|gain: a project's tracks shown, and edited a step at a
// time as the window's timeline edits them. Each edit is one undo step and is saved back into the bundle
// (atomically, by the bundle code); a refused edit changes nothing and saves nothing.

#include <fmt/core.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/time/rational_time.hpp"
#include "session_run.hpp"

namespace morvane::cli {

using namespace morvane::app;
namespace fs = std::filesystem;

namespace {

// How many characters of a clip id `show` prints; any unique prefix names a clip.
constexpr std::size_t kShortIDLength = 8;

/// Seconds from "12.5", "12.5s" or an exact "1001/30000s".
double parseTimeArgument(const std::string& option, const std::string& text) {
    if (text.find('/') != std::string::npos) {
        const auto time = RationalTime::tryParse(text);
        if (!time || !time->isValid())
            throw CLI::ValidationError(option, fmt::format("\"{}\" is not a time: give seconds (12.5) or a "
                                                           "fraction of a second (1001/30000s)",
                                                           text));
        return time->seconds();
    }
    std::string number = text;
    if (!number.empty() && number.back() == 's') number.pop_back();
    std::size_t used = 0;
    double seconds = NAN;
    try {
        seconds = std::stod(number, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (number.empty() || used != number.size() || !std::isfinite(seconds) || seconds < 0)
        throw CLI::ValidationError(option, fmt::format("\"{}\" is not a time: give seconds (12.5) or a "
                                                       "fraction of a second (1001/30000s)",
                                                       text));
    return seconds;
}

/// A linear gain from "0.5" or decibels from "-6dB".
double parseGainArgument(const std::string& text) {
    const bool decibels = text.size() > 2 && (text.ends_with("dB") || text.ends_with("db"));
    const std::string number = decibels ? text.substr(0, text.size() - 2) : text;
    std::size_t used = 0;
    double value = NAN;
    try {
        value = std::stod(number, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != number.size() || !std::isfinite(value) || (!decibels && value < 0))
        throw CLI::ValidationError("--gain", fmt::format("\"{}\" is not a gain: give a factor (0.5) or "
                                                         "decibels (-6dB)",
                                                         text));
    return decibels ? std::pow(10.0, value / 20.0) : value;
}

/// The program-axis end of a clip on its track.
double clipEnd(const TimelineClip& clip) {
    return clip.timelineStart.seconds() + TimelinePlanBridge::programDuration(clip).seconds();
}

/// Which clip an edit is for: by id (or a unique start of it), or the clip of `track` under a time.
struct ClipTarget {
    std::string bundle;
    std::string clip;
    std::string at;
    std::string track = std::string(TimelineTrackIDs::source);
};

void addTargetOptions(CLI::App* verb, ClipTarget& target) {
    verb->add_option("project", target.bundle, "The project (NAME.morvane)")
        ->required()
        ->check(CLI::ExistingDirectory);
    auto* clip = verb->add_option("--clip", target.clip, "The clip's id, or enough of its start to tell it");
    auto* at =
        verb->add_option("--at", target.at, "The clip under this time on --track (seconds or 1001/30000s)");
    clip->excludes(at);
    verb->add_option("--track", target.track,
                     "The track --at looks on: source, program, overlay, audio, text")
        ->capture_default_str();
}

std::string findClipID(const ProjectSession& session, const ClipTarget& target) {
    const TimelineDocument& timeline = *session.timeline;
    if (!target.clip.empty()) {
        std::vector<std::string> matches;
        for (const auto& track : timeline.tracks) {
            for (const auto& clip : track.clips) {
                if (clip.id == target.clip) return clip.id;
                if (clip.id.starts_with(target.clip)) matches.push_back(clip.id);
            }
        }
        if (matches.size() == 1) return matches.front();
        if (matches.empty())
            throw CLI::ValidationError("--clip", fmt::format("no clip \"{}\" in the project", target.clip));
        throw CLI::ValidationError(
            "--clip", fmt::format("\"{}\" starts {} clip ids: give more of it", target.clip, matches.size()));
    }
    if (target.at.empty()) throw CLI::ValidationError("--clip", "name the clip with --clip ID or --at TIME");
    const double at = parseTimeArgument("--at", target.at);
    const TimelineTrack* track = timeline.track(target.track);
    if (!track) throw CLI::ValidationError("--track", fmt::format("no track \"{}\"", target.track));
    for (const auto& clip : track->clips) {
        if (at >= clip.timelineStart.seconds() && at < clipEnd(clip)) return clip.id;
    }
    throw CLI::ValidationError("--at", fmt::format("no clip on the {} track at {:.3f} s", target.track, at));
}

/// Opens the project, runs `edit` on the targeted clip as one undo step and saves the bundle when the
/// editor took the edit. `edit` returns whether it did.
void runEdit(const ClipTarget& target, RunState& state, const std::string& label,
             const std::function<bool(ProjectSession&, const std::string&)>& edit) {
    ProjectSession session;
    openProject(session, target.bundle);
    if (!session.timeline)
        throw std::runtime_error("the project has no timeline yet: import a recording first");
    const std::string clipID = findClipID(session, target);
    bool taken = false;
    EditCoordinator::perform(session, label, [&] { taken = edit(session, clipID); });
    if (!taken) {
        fmt::print(stderr, "morvane: {} was refused for clip {}; the project is unchanged\n", label,
                   clipID.substr(0, kShortIDLength));
        state.exitCode = 1;
        return;
    }
    saveProject(session);
    const auto& storyline = session.timeline->clips(TimelineTrackIDs::source);
    fmt::print("{}: clip {}; the storyline now has {} clips over {:.3f} s\n", label,
               clipID.substr(0, kShortIDLength), storyline.size(),
               storyline.empty() ? 0.0 : clipEnd(storyline.back()));
}

void printTimeline(const ProjectSession& session) {
    fmt::print("Project: {}\n", session.projectName);
    for (const auto& track : session.timeline->tracks) {
        if (track.clips.empty()) continue;
        fmt::print("\n{} ({}), {} clip{}\n", track.id, track.displayName(), track.clips.size(),
                   track.clips.size() == 1 ? "" : "s");
        fmt::print("  {:<8}  {:>9}  {:>9}  {:>9}  {:>9}  {:>5}  {:>4}  {}\n", "clip", "start", "end",
                   "src in", "src out", "rate", "gain", "label");
        for (const auto& clip : track.clips) {
            fmt::print("  {:<8}  {:>9.3f}  {:>9.3f}  {:>9.3f}  {:>9.3f}  {:>5.2f}  {:>4.2f}  {}{}\n",
                       clip.id.substr(0, kShortIDLength), clip.timelineStart.seconds(), clipEnd(clip),
                       clip.sourceIn.seconds(), clip.sourceOut.seconds(), clip.playbackRate.value_or(1.0),
                       clip.audioGain, clip.textContent ? "\"" + *clip.textContent + "\"" : clip.label,
                       clip.assemblyRanges ? fmt::format("  ({} ranges)", clip.assemblyRanges->size()) : "");
        }
    }
}

}  // namespace

void addTimelineVerb(CLI::App& app, RunState& state) {
    auto* verb = app.add_subcommand("timeline", "Show a project's timeline, or edit it a step at a time");
    verb->require_subcommand(1);

    struct ShowOptions {
        std::string bundle;
        bool json = false;
    };
    auto show = std::make_shared<ShowOptions>();
    auto* showVerb = verb->add_subcommand("show", "List the clips of every track");
    showVerb->add_option("project", show->bundle, "The project (NAME.morvane)")
        ->required()
        ->check(CLI::ExistingDirectory);
    showVerb->add_flag("--json", show->json, "Print the whole timeline document as JSON");
    showVerb->callback([show] {
        ProjectSession session;
        openProject(session, show->bundle);
        if (!session.timeline)
            throw std::runtime_error("the project has no timeline yet: import a recording first");
        if (show->json) {
            printJson(Json(*session.timeline));
        } else {
            printTimeline(session);
        }
    });

    struct SplitOptions : ClipTarget {
        std::string time;
    };
    auto split = std::make_shared<SplitOptions>();
    auto* splitVerb = verb->add_subcommand("split", "Cut a clip in two at a time");
    addTargetOptions(splitVerb, *split);
    splitVerb->add_option("--time", split->time, "Where to cut (default: the --at time)");
    splitVerb->callback([split, &state] {
        const std::string time = split->time.empty() ? split->at : split->time;
        if (time.empty()) throw CLI::ValidationError("--time", "say where to cut with --time or --at");
        const double at = parseTimeArgument("--time", time);
        runEdit(*split, state, "Split Clip", [at](ProjectSession& session, const std::string& id) {
            return TimelineEditor::splitClip(session, id, at);
        });
    });

    struct TrimOptions : ClipTarget {
        std::string edge;
        std::string to;
        bool ripple = false;
        bool roll = false;
    };
    auto trim = std::make_shared<TrimOptions>();
    auto* trimVerb = verb->add_subcommand("trim", "Move a clip's start or end");
    addTargetOptions(trimVerb, *trim);
    trimVerb->add_option("--edge", trim->edge, "Which edge: start or end")
        ->required()
        ->check(CLI::IsMember({"start", "end"}));
    trimVerb->add_option("--to", trim->to, "Where the edge goes (seconds or 1001/30000s)")->required();
    auto* ripple =
        trimVerb->add_flag("--ripple", trim->ripple, "Later clips of the track move with the change");
    trimVerb->add_flag("--roll", trim->roll, "Move the cut between the clip and its neighbour")
        ->excludes(ripple);
    trimVerb->callback([trim, &state] {
        const double to = parseTimeArgument("--to", trim->to);
        const TrimEdge edge = trim->edge == "start" ? TrimEdge::leading : TrimEdge::trailing;
        const TrimDragMode mode =
            trim->ripple ? TrimDragMode::ripple : (trim->roll ? TrimDragMode::roll : TrimDragMode::normal);
        runEdit(*trim, state, "Trim Clip", [=](ProjectSession& session, const std::string& id) {
            return TimelineEditor::trimClip(session, id, edge, to, mode);
        });
    });

    auto remove = std::make_shared<ClipTarget>();
    auto* deleteVerb = verb->add_subcommand("delete", "Remove a clip (the storyline closes up)");
    addTargetOptions(deleteVerb, *remove);
    deleteVerb->callback([remove, &state] {
        runEdit(*remove, state, "Delete Clip", [](ProjectSession& session, const std::string& id) {
            return TimelineEditor::deleteClip(session, id);
        });
    });

    struct MoveOptions : ClipTarget {
        std::string to;
    };
    auto move = std::make_shared<MoveOptions>();
    auto* moveVerb = verb->add_subcommand("move", "Move a clip along its track");
    addTargetOptions(moveVerb, *move);
    moveVerb->add_option("--to", move->to, "The program time it goes to (seconds or 1001/30000s)")
        ->required();
    moveVerb->callback([move, &state] {
        const double to = parseTimeArgument("--to", move->to);
        runEdit(*move, state, "Move Clip", [to](ProjectSession& session, const std::string& id) {
            return TimelineEditor::moveClip(session, id, to);
        });
    });

    struct SpeedOptions : ClipTarget {
        double rate = 1.0;
    };
    auto speed = std::make_shared<SpeedOptions>();
    auto* speedVerb = verb->add_subcommand("speed", "Play a clip faster or slower");
    addTargetOptions(speedVerb, *speed);
    speedVerb->add_option("--rate", speed->rate, "The speed: 2 plays twice as fast, 0.5 at half speed")
        ->required()
        ->check(CLI::PositiveNumber);
    speedVerb->callback([speed, &state] {
        runEdit(*speed, state, "Change Speed",
                [rate = speed->rate](ProjectSession& session, const std::string& id) {
                    return TimelineEditor::setPlaybackRate(session, {id}, rate);
                });
    });

    struct GainOptions : ClipTarget {
        std::string gain;
    };
    auto gain = std::make_shared<GainOptions>();
    auto* gainVerb = verb->add_subcommand("gain", "Set a clip's volume (0 to 2, or decibels such as -6dB)");
    addTargetOptions(gainVerb, *gain);
    gainVerb->add_option("--gain", gain->gain, "A factor (0.5) or decibels (-6dB)")->required();
    gainVerb->callback([gain, &state] {
        const double value = parseGainArgument(gain->gain);
        runEdit(*gain, state, "Change Volume", [value](ProjectSession& session, const std::string& id) {
            return TimelineEditor::setAudioGain(session, id, value);
        });
    });
}

}  // namespace morvane::cli
