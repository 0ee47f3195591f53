// morvane render PLAN.json -o cut.mp4: a plan made elsewhere, exported as a movie with its caption sidecar,
// or as an animated GIF (--codec gif), which has neither sound nor sidecar.

#include <fmt/core.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/app/export/export_settings.hpp"
#include "morvane/engine/export/caption_exporter.hpp"
#include "morvane/engine/export/gif_exporter.hpp"
#include "morvane/engine/export/mp4_exporter.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

namespace {

std::optional<double> timecode(const std::string& text, const char* option) {
    if (text.empty()) return std::nullopt;
    const auto seconds = app::ExportSettings::parseTimecode(text);
    if (!seconds)
        throw CLI::ValidationError(option, "expected seconds, m:s or h:m:s, found \"" + text + "\"");
    return seconds;
}

}  // namespace

void addRenderVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string plan;
        std::string output;
        std::string preset = std::string(ExportPreset::youtube1080.id);
        std::string codec = "h264";
        std::string bitrate = "automatic";
        std::string from;
        std::string to;
        int gifFramesPerSecond = 12;
        int gifMaxDimension = 480;
        bool gifOnce = false;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand(
        "render", "Export a plan as a movie (H.264 or HEVC MP4, ProRes MOV) with its SRT, or a GIF");
    verb->add_option("plan", options->plan, "The plan (JSON)")->required();
    verb->add_option("-o,--output", options->output, "The movie to write")->required();
    std::vector<std::string> presets;
    for (const auto& preset : ExportPreset::all())
        presets.push_back(preset.id);
    verb->add_option("--preset", options->preset,
                     "Export preset: its loudness target (podcast: -16 LUFS, others -14)")
        ->check(CLI::IsMember(presets));
    verb->add_option("--codec", options->codec, "h264, hevc, prores (a QuickTime movie) or gif")
        ->check(CLI::IsMember({"h264", "hevc", "prores", "gif"}));
    verb->add_option("--gif-fps", options->gifFramesPerSecond, "GIF frames a second (4 to 30)");
    verb->add_option("--gif-size", options->gifMaxDimension,
                     "GIF's longer side at most, in pixels (120 to 1920)");
    verb->add_flag("--gif-once", options->gifOnce, "Play the GIF once instead of looping");
    verb->add_option("--bitrate", options->bitrate, "automatic, low, medium, high or max")
        ->check(CLI::IsMember({"automatic", "low", "medium", "high", "max"}));
    verb->add_option("--from", options->from, "Start of the range to export (seconds, m:s or h:m:s)");
    verb->add_option("--to", options->to, "End of the range to export");
    verb->add_flag("--json", options->json, "Print the report as JSON");
    verb->callback([options] {
        const EditPlan plan = readPlanFile(options->plan);
        MP4RenderOptions render;
        render.audio.loudnessTarget = ExportPreset::preset(options->preset)->loudnessTarget;
        render.videoSettings.codec = exportCodec(options->codec, options->output);
        render.videoSettings.bitrate = *kExportVideoBitrateNames.parse(options->bitrate);
        const auto from = timecode(options->from, "--from");
        const auto to = timecode(options->to, "--to");
        if (from || to) render.timeRange = ExportTimeRange{from.value_or(0.0), to.value_or(1e12)};

        render.videoSettings.gifFramesPerSecond = options->gifFramesPerSecond;
        render.videoSettings.gifMaxDimension = options->gifMaxDimension;
        render.videoSettings.gifLoop = !options->gifOnce;
        const bool gif = render.videoSettings.codec == ExportVideoCodec::gif;

        const RenderReport report = withProgress("render", [&](const auto& progress, std::stop_token stop) {
            if (gif)
                return GIFExporter::render(plan, render.audio, render.timeRange,
                                           render.videoSettings.gifOptions(), options->output, progress,
                                           stop);
            return MP4Exporter::render(plan, options->output, render, progress, stop);
        });
        std::optional<std::filesystem::path> sidecar;
        try {
            if (!gif) sidecar = CaptionExporter::writeSidecar(plan, options->output);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "morvane: no captions written: %s\n", e.what());
        }
        if (options->json) {
            Json json = report;
            json["captionsPath"] = sidecar ? Json(sidecar->string()) : Json(nullptr);
            printJson(json);
            return;
        }
        fmt::print("Wrote {}: {:.3f} s, {} frames\n", report.outputPath, report.durationSeconds,
                   report.frameCount);
        if (sidecar) fmt::print("Captions: {}\n", sidecar->string());
    });
}

}  // namespace morvane::cli
