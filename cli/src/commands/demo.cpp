// morvane demo: the main job on the bundled sample, as far as Morvane can take it today: load the
// sample's transcript, show the assistant's first commands, and route a few typed instructions.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "resolution.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

void addDemoVerb(CLI::App& app, RunState& /*state*/) {
    auto* verb = app.add_subcommand("demo", "Run the main job on the bundled sample");
    verb->callback([] {
        const auto path = samplesDir() / "talk.transcript.json";
        const Json json = parseJson(readWholeFile(path), path.filename().string());
        const auto transcript = JsonReader(json, path.filename().string()).get<TranscriptDocument>();

        fmt::print("Morvane: drop a file, pick a cut, export.\n\n");
        fmt::print("Transcript of the sample: {} words over {:.1f} s ({}), {} filler words noticed\n",
                   transcript.words.size(), transcript.durationSeconds, transcript.locale,
                   transcript.disfluencyHits.size());
        if (!transcript.words.empty()) {
            const auto& last = transcript.words.back();
            fmt::print("  last word \"{}\" from {} to {}\n", last.text, last.start.formatted(),
                       last.end.formatted());
        }

        fmt::print("\nPick a cut:\n");
        for (const auto& c : AssistantCommandCatalog::primary()) {
            fmt::print("  {:<15} {}\n", c.title, c.subtitle);
        }

        fmt::print("\nTyped instructions:\n");
        const char* instructions[] = {
            "  Remove retakes and keep the best take.  ",
            "silence",
            "remove the ums",
            "make a 90s teaser with a strong hook",
            "Keep only the parts about licensing",
            "Key out a green or blue screen",
        };
        for (const char* instruction : instructions) {
            fmt::print("  \"{}\"\n    -> {}\n", instruction,
                       resolutionLine(resolveInstruction(instruction, &transcript)));
        }
    });
}

}  // namespace morvane::cli
