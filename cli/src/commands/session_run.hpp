#pragma once

// What the verbs that drive a project session share: someone to show alerts to, a main loop run until the
// pipeline's request is done (Ctrl-C cancels it, a bar shows its job's progress), and projects opened and
// saved as the window would, noted among the recent ones.

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"

namespace CLI {
class App;
}

namespace morvane::cli {

/// The command line has nobody to show a dialog to: alerts go to stderr, and nobody can be asked a
/// question, so the language of a recording comes from the preferences or `--locale`.
struct TerminalDelegate final : app::UserInterfaceDelegate {
    void showAlert(const std::string& title, const std::string& text) override;
};

/// Runs `start` on a main loop of its own and keeps the loop going until the request it returns has
/// finished. Ctrl-C cancels the request; a job of `session` with progress, or `progress` when given (0 to 1,
/// written from any thread), shows a bar labelled `label`.
void runRequest(const app::ProjectSession& session, const std::string& label,
                const std::function<std::shared_ptr<app::PipelineRequest>(app::MainLoop&)>& start,
                const std::atomic<double>* progress = nullptr);

/// Adds `--command ID` or `--instruction TEXT` (one of them) and `--target-seconds` (with `--command`) to
/// `verb`, filling the three.
void addCommandOptions(CLI::App& verb, std::optional<std::string>& command,
                       std::optional<std::string>& instruction, std::optional<double>& targetSeconds);
/// The command a verb was asked for by `--command` (none for an `--instruction`). Throws the command
/// line's error when neither is given, the id is unknown, or `--target-seconds` comes with another
/// command than the short cut.
[[nodiscard]] std::optional<intelligence::AssistantCommandID> requestedCommand(
    const std::optional<std::string>& command, const std::optional<std::string>& instruction,
    const std::optional<double>& targetSeconds);

/// Whether `path` names a project bundle rather than a media file.
[[nodiscard]] bool isProjectBundle(const std::filesystem::path& path);

/// Makes `session` a project of the recording `media` with the transcript at `transcriptPath`, segmented
/// and snapped to the recording's pauses, everything kept.
void loadRecording(app::ProjectSession& session, const std::filesystem::path& media,
                   const std::string& transcriptPath);

/// Opens the project at `path` into `session`, noting it as recent.
void openProject(app::ProjectSession& session, const std::filesystem::path& path);
/// Saves `session` into its bundle (or `path`), noting it as recent.
void saveProject(app::ProjectSession& session,
                 const std::optional<std::filesystem::path>& path = std::nullopt, bool copyMedia = false);

/// The chat lines the session gained since it had `before` of them, as "[role] text".
void printChatSince(const app::ProjectSession& session, std::size_t before);

}  // namespace morvane::cli
