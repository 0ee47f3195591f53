// morvane silences FILE [--threshold-db -40] [--min 0.15] [--json]: the pauses of a recording.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/silence/silence_detector.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

void addSilencesVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        SilenceDetectionOptions detection;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("silences", "List the pauses of a recording");
    verb->add_option("file", options->file, "A video or audio file")->required();
    verb->add_option("--threshold-db", options->detection.thresholdDB,
                     "Level below which a 20 ms window counts as silent, in dBFS")
        ->capture_default_str();
    verb->add_option("--min", options->detection.minSilenceSeconds,
                     "Shortest pause reported, in seconds, padding included")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    verb->add_flag("--json", options->json, "Print the spans as JSON");
    verb->callback([options] {
        const auto spans = withProgress("silences", [&](const auto& progress, std::stop_token stop) {
            return SilenceDetector::detect(options->file, options->detection, progress, std::move(stop));
        });
        if (options->json) {
            printJson(Json(spans));
            return;
        }
        for (const auto& span : spans) {
            fmt::print("{:10.3f} - {:10.3f}  ({:.3f} s)\n", span.startSeconds, span.endSeconds,
                       span.endSeconds - span.startSeconds);
        }
        fmt::print("{} {}\n", spans.size(), spans.size() == 1 ? "pause" : "pauses");
    });
}

}  // namespace morvane::cli
