#include "session_run.hpp"

#include <fmt/core.h>

#include <iostream>

#include "cli.hpp"
#include "morvane/app/project/recent_projects_store.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "progress.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::app;

void TerminalDelegate::showAlert(const std::string& title, const std::string& text) {
    std::cerr << title << "\n" << text << "\n";
}

void runRequest(const ProjectSession& session, const std::string& label,
                const std::function<std::shared_ptr<PipelineRequest>(MainLoop&)>& start,
                const std::atomic<double>* progress) {
    RunLoop loop;
    const InterruptStop interrupt;
    ProgressBar bar(label);
    std::shared_ptr<PipelineRequest> request;
    loop.post([&] { request = start(loop); });
    loop.startTimer(20, true, [&] {
        if (request && interrupt.token().stop_requested()) request->cancel();
        for (const auto& job : session.activeJobs) {
            if (job.progress) bar.update(*job.progress);
        }
        if (progress) bar.update(progress->load());
        if (request && request->isFinished()) loop.quit();
    });
    loop.run();
}

void addCommandOptions(CLI::App& verb, std::optional<std::string>& command,
                       std::optional<std::string>& instruction, std::optional<double>& targetSeconds) {
    auto* id = verb.add_option("--command", command, "A command id, such as cleanUp");
    auto* typed = verb.add_option("--instruction", instruction, "An instruction as a user would type it");
    id->excludes(typed);
    verb.add_option("--target-seconds", targetSeconds,
                    "With --command shortCut60s: the length to pack to (60 when absent)")
        ->check(CLI::PositiveNumber)
        ->needs(id);
}

std::optional<intelligence::AssistantCommandID> requestedCommand(
    const std::optional<std::string>& command, const std::optional<std::string>& instruction,
    const std::optional<double>& targetSeconds) {
    using intelligence::AssistantCommandID;
    if (!command && !instruction) throw CLI::RequiredError("--command or --instruction");
    std::optional<AssistantCommandID> id;
    if (command) {
        id = intelligence::kAssistantCommandIDNames.parse(*command);
        if (!id) throw CLI::ValidationError("--command", "unknown command id " + *command);
    }
    if (targetSeconds && id != AssistantCommandID::shortCut60s)
        throw CLI::ValidationError("--target-seconds", "only the short cut (shortCut60s) packs to a length");
    return id;
}

bool isProjectBundle(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error) && ProjectBundleIO::resolveOpenURL(path).has_value();
}

void openProject(ProjectSession& session, const std::filesystem::path& path) {
    PreferencesStore preferences;
    RecentProjectsStore recent(preferences);
    ProjectBundleIO::load(session, std::filesystem::absolute(path), {.recentProjects = &recent});
}

void saveProject(ProjectSession& session, const std::optional<std::filesystem::path>& path, bool copyMedia) {
    PreferencesStore preferences;
    RecentProjectsStore recent(preferences);
    const std::filesystem::path target = path ? std::filesystem::absolute(*path) : *session.projectURL;
    ProjectBundleIO::save(session, target, {.copyMedia = copyMedia, .recentProjects = &recent});
}

void printChatSince(const ProjectSession& session, std::size_t before) {
    for (std::size_t i = before; i < session.chatMessages.size(); ++i) {
        const auto& message = session.chatMessages[i];
        fmt::print("[{}] {}\n", kChatRoleNames.text(message.role), message.text);
    }
}

void loadRecording(ProjectSession& session, const std::filesystem::path& media,
                   const std::string& transcriptPath) {
    auto segmented = withProgress("segment", [&](const auto& progress, std::stop_token stop) {
        return segmentTranscriptFile(transcriptPath, media.string(), progress, std::move(stop));
    });
    session.resetForNewProject(media.stem().string());
    session.mediaURL = media;
    session.mediaDurationSeconds = segmented.transcript.durationSeconds;
    session.mediaBin.push_back({.id = "src1",
                                .label = media.filename().string(),
                                .urlPath = media.string(),
                                .kind = MediaBinKind::primary,
                                .durationSeconds = segmented.transcript.durationSeconds,
                                .hasVideo = true,
                                .hasAudio = true});
    session.transcript = std::move(segmented.transcript);
    session.segments = std::move(segmented.segments);
    session.transcriptSourceID = "src1";
    TimelinePlanBridge::bootstrapSourceTimeline(session, "src1");
    session.seedCutItemsFromSegments("transcript");
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
}

}  // namespace morvane::cli
