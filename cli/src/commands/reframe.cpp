// morvane reframe FILE [--interval S] [--size WxH] [--json]: the crops that follow a recording's subject on
// a vertical canvas, as Auto-reframe gives them: one keyframe a sample, held until the next.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/intelligence/publish/auto_reframe_analyzer.hpp"
#include "progress.hpp"

namespace morvane::cli {

namespace AutoReframeAnalyzer = intelligence::AutoReframeAnalyzer;

void addReframeVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        double interval = AutoReframeAnalyzer::defaultSampleInterval;
        std::string size = "1080x1920";
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb =
        app.add_subcommand("reframe", "Print the crops that keep a recording's subject in a vertical frame");
    verb->add_option("file", options->file, "The recording")->required()->check(CLI::ExistingFile);
    verb->add_option("--interval", options->interval, "Seconds between samples (at least 0.18)")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->add_option("--size", options->size, "The canvas the crops are for, WIDTHxHEIGHT")
        ->capture_default_str();
    verb->add_flag("--json", options->json, "Print the keyframes as JSON");
    verb->callback([options] {
        const auto size = engine::ProjectFormatParser::parseRenderSize(options->size);
        if (!size) throw CLI::ValidationError("--size", "expected WIDTHxHEIGHT, like 1080x1920");
        const double duration = engine::MediaProbe::probe(options->file).durationSeconds;
        const engine::ProgramClip clip{
            .type = "clip",
            .sourceID = "src1",
            .start = engine::RationalTime::zero,
            .end = engine::RationalTime::fromSeconds(duration, engine::RationalTime::workingTimescale),
            .timelineStart = engine::RationalTime::zero};
        const auto keyframes = withProgress("reframe", [&](const auto& progress, std::stop_token stop) {
            return AutoReframeAnalyzer::keyframes(options->file, clip, *size, options->interval, progress,
                                                  std::move(stop));
        });
        if (options->json) {
            Json out = Json::object();
            out["renderSize"] = options->size;
            out["keyframes"] = keyframes;
            printJson(out);
            return;
        }
        fmt::print("   start      end      x      y  width height\n");
        for (const auto& k : keyframes) {
            const auto& r = k.sourceRect;
            fmt::print("{:8.2f} {:8.2f} {:6.3f} {:6.3f} {:6.3f} {:6.3f}\n", k.programStart.seconds(),
                       k.programEnd.seconds(), r.x, r.y, r.width, r.height);
        }
    });
}

}  // namespace morvane::cli
