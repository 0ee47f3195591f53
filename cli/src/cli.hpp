#pragma once

// What every verb of the command line shares: how it is registered, how it prints, where samples are.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>

#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::cli {

/// Set by a verb's callback; 0 on success.
struct RunState {
    int exitCode = 0;
};

void addCommandsVerb(CLI::App& app, RunState& state);
void addResolveVerb(CLI::App& app, RunState& state);
void addDemoVerb(CLI::App& app, RunState& state);
void addModelVerb(CLI::App& app, RunState& state);
void addCutVerb(CLI::App& app, RunState& state);
void addSilencesVerb(CLI::App& app, RunState& state);
void addLoudnessVerb(CLI::App& app, RunState& state);
void addWaveformVerb(CLI::App& app, RunState& state);
void addPlanVerb(CLI::App& app, RunState& state);
void addSegmentVerb(CLI::App& app, RunState& state);
void addClassifyVerb(CLI::App& app, RunState& state);
void addFrameVerb(CLI::App& app, RunState& state);
void addRenderAudioVerb(CLI::App& app, RunState& state);
void addRenderVerb(CLI::App& app, RunState& state);
void addShortsVerb(CLI::App& app, RunState& state);
void addProbeVerb(CLI::App& app, RunState& state);
void addTranscribeVerb(CLI::App& app, RunState& state);
void addProjectVerb(CLI::App& app, RunState& state);
void addTimelineVerb(CLI::App& app, RunState& state);
void addEditVerb(CLI::App& app, RunState& state);

/// Writes `json` pretty-printed to stdout, with a final newline.
void printJson(const Json& json);

/// The folder of the bundled sample: $MORVANE_SAMPLES_DIR, else the source tree's samples/.
std::filesystem::path samplesDir();

/// The plan at `path`, every time in it checked, its relative source paths resolved against its folder.
/// Throws `JsonDecodeError` naming the file and where it fails.
engine::EditPlan readPlanFile(const std::string& path);

/// The codec a --codec option names ("h264", "hevc", "prores", "gif"); the default "h264" becomes GIF when
/// `output` ends in ".gif", so that "-o loop.gif" alone writes a GIF.
engine::ExportVideoCodec exportCodec(const std::string& option, const std::filesystem::path& output);

}  // namespace morvane::cli
