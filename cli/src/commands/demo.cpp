// morvane demo [-o DIR]: the main job on the bundled sample. Its recording is transcribed, cleaned up
// (fillers, false starts, retakes and long pauses out) and exported with its captions into DIR, and the
// work is kept there as a project.

#include <fmt/core.h>

#include <filesystem>

#include "cli.hpp"
#include "edit_job.hpp"

namespace morvane::cli {

namespace fs = std::filesystem;

void addDemoVerb(CLI::App& app, RunState& /*state*/) {
    auto folder = std::make_shared<std::string>("morvane-demo");
    auto* verb =
        app.add_subcommand("demo", "Run the main job on the bundled sample: transcribe, clean up, export");
    verb->add_option("-o,--output", *folder, "The folder for the cut, its captions and the project")
        ->capture_default_str();
    verb->callback([folder] {
        const fs::path sample = samplesDir() / "talk.mp4";
        std::error_code error;
        if (!fs::is_regular_file(sample, error))
            throw std::runtime_error(
                fmt::format("the bundled sample {} is missing: the build makes it (bash scripts/build.sh)",
                            sample.string()));
        const fs::path out = fs::absolute(*folder);
        fs::create_directories(out);
        // A project left by an earlier demo run is this verb's own output: start it afresh.
        fs::remove_all(out / "Talk.morvane");

        fmt::print("Morvane: drop a file, pick a cut, export.\n");
        fmt::print("Sample:      {}\n\n", sample.string());
        runMainJob({.media = sample.string(),
                    .command = "cleanUp",
                    .output = (out / "talk-cut.mp4").string(),
                    .project = (out / "Talk.morvane").string()},
                   intelligence::AssistantCommandID::cleanUp);
    });
}

}  // namespace morvane::cli
