// morvane edit FILE (--command ID | --instruction "...") -o OUT.mp4: the main job from a terminal. Import
// the recording, transcribe it on this machine, run the assistant's cut, accept the rough cut and export
// it with its captions, then say in one screen what came of it. With --project the work is kept as a
// project bundle that the window opens.

#include <fmt/core.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli.hpp"
#include "edit_job.hpp"
#include "morvane/app/export/caption_generator.hpp"
#include "morvane/app/export/export_runner.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/support/launch_log.hpp"
#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "progress.hpp"
#include "session_run.hpp"

namespace morvane::cli {

using namespace morvane::app;
using intelligence::AssistantCommandID;
namespace fs = std::filesystem;

namespace {

/// The export's progress as a bar on the terminal.
class TerminalExportDisplay final : public ExportProgressDisplay {
  public:
    void show(const std::string&, const std::string&) override { bar_.emplace("export"); }
    void update(const ExportProgressText& text) override {
        if (bar_) bar_->update(text.value);
    }
    void dismiss() override { bar_.reset(); }

  private:
    std::optional<ProgressBar> bar_;
};

/// Stops the verb with the step's failure when the session shows one.
void requireNoError(const ProjectSession& session, const std::string& step) {
    if (!session.errorMessage) return;
    LaunchLog::append(*session.errorMessage);
    throw std::runtime_error(fmt::format("{}: {}", step, *session.errorMessage));
}

/// What the summary reports of the cut.
struct CutCounts {
    std::size_t segments = 0;
    std::size_t kept = 0;
    bool proposed = false;
};

}  // namespace

void runMainJob(const EditJob& job, std::optional<AssistantCommandID> commandID) {
    const fs::path media = fs::absolute(job.media);
    const fs::path output = fs::absolute(job.output);
    std::error_code same;
    if (fs::equivalent(media, output, same))
        throw CLI::ValidationError("--output", "the cut must not overwrite the recording");

    ProjectSession session;
    ProjectPipeline::createUntitledProject(session);
    std::optional<fs::path> bundle;
    if (job.project) {
        bundle = ProjectBundleIO::normalizedProjectURL(fs::absolute(*job.project));
        std::error_code error;
        if (fs::exists(*bundle / "project.json", error))
            throw ProjectBundleError::alreadyExists(bundle->string());
        session.projectName = bundle->stem().string();
        session.mediaTitle = session.projectName;
        saveProject(session, *bundle);
    }

    const PreferencesStore preferences;
    TerminalDelegate delegate;
    auto connection = intelligence::LanguageModelConnection::fromPreferences(preferences);
    if (!job.modelURL.empty()) connection.baseURL = job.modelURL;
    intelligence::HttpLanguageModelService model(connection);
    const auto transcription = intelligence::makeTranscriptionProvider(preferences);
    const auto context = [&](MainLoop& loop) {
        return PipelineContext{.mainLoop = loop,
                               .languageModel = &model,
                               .delegate = &delegate,
                               .preferences = &preferences,
                               .transcription = transcription.get()};
    };

    runRequest(session, "import",
               [&](MainLoop& loop) { return ProjectPipeline::importMedia(session, media, context(loop)); });
    requireNoError(session, "import");
    const std::string locale = job.locale.value_or(
        intelligence::TranscriptionLocale::resolvedLocaleWithoutPrompt(preferences).value_or("en-US"));
    runRequest(session, "transcribe", [&](MainLoop& loop) {
        return ProjectPipeline::transcribeMedia(session, context(loop),
                                                {.promptIfNeeded = false, .locale = locale});
    });
    requireNoError(session, "transcribe");
    if (!session.transcript || session.transcript->words.empty())
        throw std::runtime_error("transcribe: no speech was recognised, so there is nothing to cut by");

    runRequest(session, "cut", [&](MainLoop& loop) {
        if (commandID) {
            return ProjectPipeline::applyCommand(session, *commandID, context(loop),
                                                 {.targetSeconds = job.targetSeconds});
        }
        session.instruction = *job.instruction;
        return ProjectPipeline::applyInstruction(session, context(loop));
    });
    requireNoError(session, "cut");
    CutCounts counts{.segments = session.segments ? session.segments->segments.size() : 0};
    if (session.isReviewingProposal()) {
        counts.proposed = true;
        counts.kept = session.classification ? session.classification->mergedKeepSegmentIDs.size() : 0;
        ProjectPipeline::acceptRoughCut(session);
    } else {
        counts.kept = counts.segments;
    }
    const std::string cutStatus = session.statusMessage;
    // The captions of what is kept, for the SRT beside the movie; burned in only when asked.
    EditCoordinator::perform(session, "Generate Captions", [&] {
        CaptionGenerator::generateCaptions(session, engine::TextStylePreset::caption);
    });

    ExportRequest request = ExportRequest::defaultFor(session);
    if (job.preset) {
        request.preset = *engine::ExportPreset::preset(*job.preset);
        request.updateProjectFormat = true;
    }
    request.burnInCaptions = job.burnIn;
    request.videoSettings.codec = exportCodec(job.codec, output);
    TerminalExportDisplay display;
    runRequest(session, "export", [&](MainLoop& loop) {
        return ExportRunner::run(session, request, output, context(loop), {.display = &display});
    });
    requireNoError(session, "export");
    const std::string exportStatus = session.statusMessage;
    if (bundle) saveProject(session);

    const double sourceSeconds = session.mediaDurationSeconds.value_or(0.0);
    const double cutSeconds = engine::MediaProbe::probe(output).durationSeconds;
    fs::path captions = output;
    captions.replace_extension("srt");
    std::error_code error;
    const bool hasCaptions = fs::exists(captions, error);
    if (job.json) {
        Json json = Json::object();
        json["output"] = output.string();
        json["captions"] = hasCaptions ? Json(captions.string()) : Json(nullptr);
        json["project"] = bundle ? Json(bundle->string()) : Json(nullptr);
        json["words"] = session.transcript->words.size();
        json["segments"] = counts.segments;
        json["segmentsKept"] = counts.kept;
        json["segmentsDropped"] = counts.segments - counts.kept;
        json["proposed"] = counts.proposed;
        json["sourceSeconds"] = sourceSeconds;
        json["durationSeconds"] = cutSeconds;
        json["secondsSaved"] = sourceSeconds - cutSeconds;
        json["cut"] = cutStatus;
        json["status"] = exportStatus;
        printJson(json);
        return;
    }
    fmt::print("Transcript:  {} words in {} segments ({})\n", session.transcript->words.size(),
               counts.segments, session.transcript->locale);
    if (counts.proposed) {
        fmt::print("Cut:         kept {} segments, dropped {}: {}\n", counts.kept,
                   counts.segments - counts.kept, cutStatus);
    } else {
        fmt::print("Cut:         nothing to cut: {}\n", cutStatus);
    }
    fmt::print("Length:      {:.2f} s of {:.2f} s ({:.2f} s saved)\n", cutSeconds, sourceSeconds,
               sourceSeconds - cutSeconds);
    fmt::print("Movie:       {}\n", output.string());
    if (hasCaptions) fmt::print("Captions:    {}\n", captions.string());
    if (bundle) fmt::print("Project:     {}\n", bundle->string());
}

void addEditVerb(CLI::App& app, RunState& /*state*/) {
    auto options = std::make_shared<EditJob>();
    auto* verb = app.add_subcommand(
        "edit", "The main job: transcribe a recording, cut it with a command, export the cut with captions");
    verb->add_option("file", options->media, "The recording")->required()->check(CLI::ExistingFile);
    addCommandOptions(*verb, options->command, options->instruction, options->targetSeconds);
    verb->add_option("-o,--output", options->output,
                     "The movie to write (.mp4, .mov for ProRes, .gif for GIF)")
        ->required();
    verb->add_option("--project", options->project,
                     "Keep the work as this project bundle (NAME.morvane, made new)");
    std::vector<std::string> presets;
    for (const auto& preset : engine::ExportPreset::all())
        presets.push_back(preset.id);
    verb->add_option("--preset", options->preset,
                     "Export preset: its canvas and loudness target (default: the recording's project)")
        ->check(CLI::IsMember(presets));
    verb->add_option("--codec", options->codec, "h264, hevc, prores (a QuickTime movie) or gif")
        ->check(CLI::IsMember({"h264", "hevc", "prores", "gif"}))
        ->capture_default_str();
    verb->add_option("--locale", options->locale,
                     "The language spoken (default: the last one chosen, else en-US)");
    verb->add_option("--model-url", options->modelURL, "Language model server API root, for instructions");
    verb->add_flag("--burn-in", options->burnIn, "Draw the captions into the picture as well");
    verb->add_flag("--json", options->json, "Print the summary as JSON");
    verb->callback([options] {
        const std::optional<AssistantCommandID> commandID =
            requestedCommand(options->command, options->instruction, options->targetSeconds);
        runMainJob(*options, commandID);
    });
}

}  // namespace morvane::cli
