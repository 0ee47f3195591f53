// morvane frame PLAN.json --at SECONDS -o frame.png: one program frame of a plan, as a PNG.

#include <fmt/core.h>

#include "cli.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"

namespace morvane::cli {

using namespace morvane::engine;

void addFrameVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string plan;
        double at = 0.0;
        std::string output;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("frame", "Render the program frame of a plan shown at a time, as a PNG");
    verb->add_option("plan", options->plan, "The plan (JSON)")->required();
    verb->add_option("--at", options->at, "Program time in seconds")->required();
    verb->add_option("-o,--output", options->output, "The PNG to write")->required();
    verb->callback([options] {
        const EditPlan plan = readPlanFile(options->plan);
        CompositionRenderer renderer(CompositionBuilder::build(plan, AudioFinishingOptions::preview()));
        // The frame that is on screen at that time: the one that starts at or before it.
        const FrameRate rate{renderer.build().frameDuration};
        const std::int64_t index =
            rate.frameIndex(RationalTime::fromSeconds(options->at, RationalTime::workingTimescale));
        const RationalTime time = rate.timeForFrame(index);
        const RGBAImage picture = renderer.frame(time).toRGBA();
        writePNG(picture, options->output);
        fmt::print("Wrote {}: {}x{}, frame {} at {:.3f} s\n", options->output, picture.width, picture.height,
                   index, time.seconds());
    });
}

}  // namespace morvane::cli
