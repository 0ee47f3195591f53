// morvane project new|import|transcribe|info: a project bundle (NAME.morvane) made, filled, transcribed and
// shown from a terminal, through the same pipeline and the same bundle code as the window.

#include <fmt/core.h>

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/app/support/launch_log.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "session_run.hpp"

namespace morvane::cli {

using namespace morvane::app;
namespace fs = std::filesystem;

namespace {

// Ends the verb with the session's error, if it has one.
void reportError(const ProjectSession& session, RunState& state) {
    if (!session.errorMessage) return;
    std::cerr << "morvane: " << *session.errorMessage << "\n";
    LaunchLog::append(*session.errorMessage);
    state.exitCode = 1;
}

Json infoJson(const ProjectSession& session) {
    Json json = Json::object();
    json["name"] = session.projectName;
    json["bundle"] = session.projectURL ? session.projectURL->string() : "";
    json["status"] = session.statusMessage;
    json["primarySourceID"] = session.primarySourceID;
    json["frameDuration"] = session.frameDuration;
    Json media = Json::array();
    for (const auto& entry : session.mediaBin) {
        Json item = entry;
        const fs::path file = session.extraSources.count(entry.id) ? session.extraSources.at(entry.id)
                                                                   : entry.resolvedURL(session.projectURL);
        std::error_code error;
        item["file"] = file.string();
        item["online"] = fs::is_regular_file(file, error);
        item["hasTranscript"] = session.sourceTranscripts.count(entry.id) > 0;
        media.push_back(std::move(item));
    }
    json["mediaBin"] = std::move(media);
    json["transcriptSourceID"] =
        session.transcriptSourceID ? Json(*session.transcriptSourceID) : Json(nullptr);
    json["words"] = session.transcript ? session.transcript->words.size() : 0;
    json["segments"] = session.segments ? session.segments->segments.size() : 0;
    json["removedWords"] = session.removedWordIDs.size();
    Json tracks = Json::object();
    if (session.timeline) {
        for (const auto& track : session.timeline->tracks)
            tracks[track.id] = track.clips.size();
    }
    json["timelineClips"] = std::move(tracks);
    json["chatMessages"] = session.chatMessages.size();
    Json checkpoints = Json::array();
    for (const auto& checkpoint : session.namedCheckpoints)
        checkpoints.push_back(checkpoint.name);
    json["checkpoints"] = std::move(checkpoints);
    return json;
}

void printInfo(const Json& info) {
    fmt::print("{:<14}{}\n", "Project:", info["name"].get<std::string>());
    fmt::print("{:<14}{}\n", "Bundle:", info["bundle"].get<std::string>());
    for (const auto& item : info["mediaBin"]) {
        fmt::print("{:<14}{} {:<8} {:>9.2f} s  {}{}{}\n", item["id"].get<std::string>() + ":",
                   item["id"] == info["primarySourceID"] ? "*" : " ", item["kind"].get<std::string>(),
                   item["durationSeconds"].get<double>(), item["label"].get<std::string>(),
                   item["hasTranscript"].get<bool>() ? "  (transcribed)" : "",
                   item["online"].get<bool>() ? "" : "  OFFLINE: " + item["file"].get<std::string>());
    }
    if (info["transcriptSourceID"].is_string()) {
        fmt::print("{:<14}{} words, {} segments, {} struck ({})\n", "Transcript:", info["words"].get<int>(),
                   info["segments"].get<int>(), info["removedWords"].get<int>(),
                   info["transcriptSourceID"].get<std::string>());
    }
    std::string clips;
    for (const auto& [track, count] : info["timelineClips"].items())
        clips += fmt::format("{}{} {}", clips.empty() ? "" : ", ", track, count.get<int>());
    fmt::print("{:<14}{}\n", "Timeline:", clips);
    fmt::print("{:<14}{} chat lines, {} checkpoints\n", "History:", info["chatMessages"].get<int>(),
               info["checkpoints"].size());
    fmt::print("{:<14}{}\n", "Status:", info["status"].get<std::string>());
}

}  // namespace

void addProjectVerb(CLI::App& app, RunState& state) {
    auto* verb =
        app.add_subcommand("project", "Make, fill, transcribe and show project bundles (NAME.morvane)");
    verb->require_subcommand(1);

    auto newBundle = std::make_shared<std::string>();
    auto* create = verb->add_subcommand("new", "Create an empty project bundle");
    create->add_option("bundle", *newBundle, "NAME.morvane (the extension is added when missing)")
        ->required();
    create->callback([newBundle] {
        const fs::path bundle = ProjectBundleIO::normalizedProjectURL(fs::absolute(*newBundle));
        std::error_code error;
        if (fs::exists(bundle / "project.json", error))
            throw ProjectBundleError::alreadyExists(bundle.string());
        ProjectSession session;
        ProjectPipeline::createUntitledProject(session);
        session.projectName = bundle.stem().string();
        session.mediaTitle = session.projectName;
        saveProject(session, bundle);
        fmt::print("Created {}\n", bundle.string());
    });

    struct ImportOptions {
        std::string bundle;
        std::vector<std::string> files;
        bool copy = false;
    };
    auto importOptions = std::make_shared<ImportOptions>();
    auto* importVerb = verb->add_subcommand(
        "import", "Bring media files into a project; the first of an empty one becomes primary");
    importVerb->add_option("bundle", importOptions->bundle, "The project")
        ->required()
        ->check(CLI::ExistingDirectory);
    importVerb->add_option("files", importOptions->files, "Video, audio or image files")
        ->required()
        ->check(CLI::ExistingFile);
    importVerb->add_flag(
        "--copy", importOptions->copy,
        "Also gather into Media the files lying elsewhere inside the bundle (files from outside it "
        "are always copied in, so the project stays whole)");
    importVerb->callback([importOptions, &state] {
        ProjectSession session;
        openProject(session, importOptions->bundle);
        TerminalDelegate delegate;
        std::vector<std::string> failures;
        for (const auto& file : importOptions->files) {
            const std::size_t before = session.chatMessages.size();
            runRequest(session, "import", [&](MainLoop& loop) {
                return ProjectPipeline::importMedia(session, fs::absolute(file),
                                                    {.mainLoop = loop, .delegate = &delegate});
            });
            printChatSince(session, before);
            if (session.errorMessage) failures.push_back(*session.errorMessage);
        }
        saveProject(session, std::nullopt, importOptions->copy);
        fmt::print("Status: {}\n", session.statusMessage);
        for (const auto& failure : failures) {
            std::cerr << "morvane: " << failure << "\n";
            LaunchLog::append(failure);
        }
        if (!failures.empty()) state.exitCode = 1;
    });

    struct TranscribeOptions {
        std::string bundle;
        std::optional<std::string> source;
        std::optional<std::string> locale;
    };
    auto transcribeOptions = std::make_shared<TranscribeOptions>();
    auto* transcribe =
        verb->add_subcommand("transcribe", "Transcribe a source of a project, segment it and keep it");
    transcribe->add_option("bundle", transcribeOptions->bundle, "The project")
        ->required()
        ->check(CLI::ExistingDirectory);
    transcribe->add_option("--source", transcribeOptions->source,
                           "The source id (src1, src2...); default: the primary");
    transcribe->add_option("--locale", transcribeOptions->locale,
                           "The language spoken, such as en-US; default: the last one chosen, else en-US");
    transcribe->callback([transcribeOptions, &state] {
        ProjectSession session;
        openProject(session, transcribeOptions->bundle);
        if (transcribeOptions->source && !session.binEntry(*transcribeOptions->source)) {
            throw CLI::ValidationError("--source",
                                       "no source " + *transcribeOptions->source + " in this project");
        }
        const PreferencesStore preferences;
        const auto provider = intelligence::makeTranscriptionProvider(preferences);
        TerminalDelegate delegate;
        const std::size_t before = session.chatMessages.size();
        runRequest(session, "transcribe", [&](MainLoop& loop) {
            return ProjectPipeline::transcribeMedia(session,
                                                    {.mainLoop = loop,
                                                     .delegate = &delegate,
                                                     .preferences = &preferences,
                                                     .transcription = provider.get()},
                                                    {.sourceID = transcribeOptions->source,
                                                     .promptIfNeeded = false,
                                                     .locale = transcribeOptions->locale});
        });
        printChatSince(session, before);
        if (session.isDirty) saveProject(session);
        fmt::print("Status: {}\n", session.statusMessage);
        reportError(session, state);
    });

    struct InfoOptions {
        std::string bundle;
        bool json = false;
    };
    auto infoOptions = std::make_shared<InfoOptions>();
    auto* info = verb->add_subcommand(
        "info", "Show what a project holds: its media, transcript, timeline and history");
    info->add_option("bundle", infoOptions->bundle, "The project")->required()->check(CLI::ExistingDirectory);
    info->add_flag("--json", infoOptions->json, "Print it as JSON");
    info->callback([infoOptions] {
        // Looking at a project doesn't make it a recent one.
        ProjectSession session;
        ProjectBundleIO::load(session, fs::absolute(infoOptions->bundle));
        const Json json = infoJson(session);
        if (infoOptions->json) {
            printJson(json);
        } else {
            printInfo(json);
        }
    });
}

}  // namespace morvane::cli
