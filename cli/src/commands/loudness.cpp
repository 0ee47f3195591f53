// morvane loudness FILE [--json]: the integrated loudness of a recording.

#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/audio/loudness_analyzer.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

void addLoudnessVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand(
        "loudness", "Measure the integrated loudness of a recording (LUFS, 0.691 LU below BS.1770)");
    verb->add_option("file", options->file, "A video or audio file")->required();
    verb->add_flag("--json", options->json, "Print the result as JSON");
    verb->callback([options] {
        const auto lufs = withProgress("loudness", [&](const auto& progress, std::stop_token stop) {
            return LoudnessAnalyzer::measureIntegratedLUFS(options->file, std::nullopt, progress,
                                                           std::move(stop));
        });
        // Silence measures minus infinity: no measurement, as everywhere else.
        const bool measured = lufs && std::isfinite(*lufs);
        if (options->json) {
            Json json = Json::object();
            json["file"] = options->file;
            json["integratedLUFS"] = measured ? Json(*lufs) : Json(nullptr);
            printJson(json);
            return;
        }
        if (measured) {
            fmt::print("Integrated loudness: {:.2f} LUFS\n", *lufs);
        } else {
            fmt::print("Integrated loudness: none (the audio is silent or empty)\n");
        }
    });
}

}  // namespace morvane::cli
