// morvane render-audio PLAN.json -o mix.wav: the mixed program audio of a plan.

#include <fmt/core.h>

#include "cli.hpp"
#include "morvane/engine/audio/audio_render_io.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::engine;

void addRenderAudioVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string plan;
        std::string output;
        int rate = 48000;
        std::string loudness = "none";
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("render-audio",
                                    "Render the mixed program audio of a plan to a WAV (mono, 32-bit float)");
    verb->add_option("plan", options->plan, "The plan (JSON)")->required();
    verb->add_option("-o,--output", options->output, "The WAV to write")->required();
    verb->add_option("--rate", options->rate, "Sample rate in Hz")->check(CLI::Range(8000, 192000));
    verb->add_option("--loudness", options->loudness, "Bring the speech to a target: none, youtube, podcast")
        ->check(CLI::IsMember({"none", "youtube", "podcast"}));
    verb->callback([options] {
        const EditPlan plan = readPlanFile(options->plan);
        const auto mix = withProgress("render-audio", [&](const auto& progress, std::stop_token stop) {
            auto finishing = AudioFinishingOptions::preview();
            finishing.loudnessTarget = *kLoudnessTargetNames.parse(options->loudness);
            CompositionRenderer renderer(CompositionBuilder::build(plan, finishing, {}, stop), stop);
            return renderer.renderAudio({.sampleRate = options->rate}, progress);
        });
        AudioRenderIO::writeWAV(mix.samples, mix.sampleRate, options->output);
        fmt::print("Wrote {}: {:.3f} s at {} Hz\n", options->output, mix.durationSeconds, options->rate);
    });
}

}  // namespace morvane::cli
