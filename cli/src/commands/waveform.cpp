// morvane waveform FILE [--bins N] [--json]: the envelope a timeline draws for a recording.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/audio/waveform_generator.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

void addWaveformVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        std::optional<int> bins;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("waveform", "Compute the waveform envelope of a recording");
    verb->add_option("file", options->file, "A video or audio file")->required();
    verb->add_option("--bins", options->bins,
                     "Number of bins (default: 120 a second, at least 1024, at most 65536)")
        ->check(CLI::Range(1, 1 << 22));
    verb->add_flag("--json", options->json, "Print the envelope as JSON (mins, maxs, durationSeconds)");
    verb->callback([options] {
        const auto envelope = withProgress("waveform", [&](const auto& progress, std::stop_token stop) {
            return WaveformGenerator::generate(options->file, options->bins, progress, std::move(stop));
        });
        if (options->json) {
            printJson(Json(envelope));
            return;
        }
        fmt::print("{} bins over {:.2f} s\n", envelope.mins.size(), envelope.durationSeconds);
    });
}

}  // namespace morvane::cli
