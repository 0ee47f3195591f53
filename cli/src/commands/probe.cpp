// morvane probe FILE [--json]: what a media file is, as an import sees it.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

namespace {

std::string joined(const std::vector<std::string>& parts) {
    std::string out;
    for (const auto& part : parts)
        out += (out.empty() ? "" : ", ") + part;
    return out;
}

void printTrack(const char* title, const TrackSummary& track) {
    fmt::print("{:<16}{}\n", title, joined(track.formatDescriptions));
    if (track.nominalFrameRate) fmt::print("{:<16}{:.3f} fps nominal", "", *track.nominalFrameRate);
    if (track.estimatedFrameRate) fmt::print(", {:.3f} fps measured", *track.estimatedFrameRate);
    if (track.nominalFrameRate || track.estimatedFrameRate) fmt::print("\n");
    if (track.timecode) fmt::print("{:<16}{}\n", "Timecode:", *track.timecode);
}

}  // namespace

void addProbeVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("probe", "Show a media file's length, tracks and frame timing");
    verb->add_option("file", options->file, "A video, audio or image file")->required();
    verb->add_flag("--json", options->json, "Print the report as JSON");
    verb->callback([options] {
        // Reading every packet of a long recording takes a moment; Ctrl-C stops it cleanly.
        const MediaProbeReport report = withProgress("probe", [&](const auto&, std::stop_token stop) {
            return MediaProbe::probe(options->file, stop);
        });
        const std::string frameDuration = FrameDurationGuess::from(report);
        if (options->json) {
            Json json = report;
            json["frameDuration"] = frameDuration;
            printJson(json);
            return;
        }
        fmt::print("{:<16}{}\n", "File:", options->file);
        fmt::print("{:<16}{:.3f} s ({})\n", "Duration:", report.durationSeconds, report.duration);
        if (report.video) printTrack("Video:", *report.video);
        if (report.rotationDegrees != 0)
            fmt::print("{:<16}{:g}° clockwise to show upright\n", "Rotation:", report.rotationDegrees);
        if (report.audio) printTrack("Audio:", *report.audio);
        if (!report.video && !report.audio) fmt::print("{:<16}none\n", "Tracks:");
        if (report.vfr)
            fmt::print("{:<16}{} ({} frames)\n", "Timing:", report.vfr->notes, report.vfr->sampleCount);
        fmt::print("{:<16}{}\n", "Frame duration:", frameDuration);
    });
}

}  // namespace morvane::cli
