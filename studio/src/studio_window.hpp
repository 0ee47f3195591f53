#pragma once

/// Morvane Studio's main window over one project session: the transcript on the left, the preview in the
/// middle (the welcome page until there is a project), the assistant on the right, the timeline below, the
/// error banner on top and the status line at the bottom. Everything long runs on the pipeline's workers
/// and comes back through the window's main loop, so the window never waits on them.
///
///     PreferencesStore preferences;
///     StudioWindow window({.preferences = preferences, .languageModel = &model});
///     window.show();
///     window.openFiles({"talk.mp4"});

#include <QMainWindow>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "morvane/app/export/export_settings.hpp"
#include "morvane/app/media/proxy_store.hpp"
#include "morvane/app/media/waveform_cache.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_autosave_controller.hpp"
#include "morvane/app/project/recent_projects_store.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "preview/preview_player.hpp"
#include "qt_main_loop.hpp"
#include "studio_preferences.hpp"

class QAction;
class QFrame;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;

namespace morvane {
class PreferencesStore;
}

namespace morvane::studio {

class AssistantPanel;
class CachedModelService;
class PreviewMonitor;
class RecordingLoad;
class TimelineView;
class TranscriptView;

/// What the window works with, owned by whoever starts it.
struct StudioServices {
    PreferencesStore& preferences;
    intelligence::LanguageModelService* languageModel = nullptr;  ///< none: only the rules answer
};

class StudioWindow final : public QMainWindow, public app::UserInterfaceDelegate {
  public:
    explicit StudioWindow(StudioServices services, QWidget* parent = nullptr);
    ~StudioWindow() override;

    // What the user does, as the menus, buttons and drops do it.

    /// Brings dropped or chosen files in: a recording with a transcript file beside it ("talk.mp4" and
    /// "talk.transcript.json") opens with that transcript; any other file is imported into the project
    /// and, when it has sound, transcribed in the language the user picks.
    void openFiles(const std::vector<std::filesystem::path>& files);
    /// Opens `media` with its transcript file.
    void openRecording(const std::filesystem::path& media, const std::filesystem::path& transcript);
    void runCommand(intelligence::AssistantCommandID id);
    void runInstruction(const std::string& instruction);
    /// Accept: the rough cut under review, or the cut made by striking words.
    void acceptCut();
    /// Reject the rough cut, or reset the struck words.
    void rejectCut();
    void strikeWords(const std::set<int>& wordIDs, bool removed);
    void restoreCheckpoint(const std::string& messageID);
    void saveCheckpoint();
    void undo();
    void redo();
    /// Splits the selected clips at the playhead, or every clip under it when none is selected.
    void splitAtPlayhead();
    /// Removes the selected clips; with `ripple`, later clips on their tracks move up to close the gap
    /// (the storyline and the rough cut always close up). In the transcript it strikes the selected words.
    void deleteSelection(bool ripple);
    /// Joins the selected touching pieces of one recording into one clip.
    void joinSelection();
    void newProject();
    /// Opens the project bundle at `bundle` once unsaved changes are settled.
    void openProject(const std::filesystem::path& bundle);
    /// Saves the project where it was saved last, asking where when it never was.
    void saveProject();
    /// Saves the project to `bundle` (".morvane" added when missing) and works on there from now on.
    void saveProjectAs(const std::filesystem::path& bundle);
    /// Exports the project's cut as `request` asks to `movie`, with progress in the status line.
    void exportTo(const app::ExportRequest& request, const std::filesystem::path& movie);
    /// Stops what the window started and is still running.
    void cancelWork();
    /// Whether something the window started is still running.
    [[nodiscard]] bool isWorking() const;

    // UserInterfaceDelegate.
    void showAlert(const std::string& title, const std::string& text) override;
    /// Asks with the language dialog, which remembers the answer as the user chooses.
    std::optional<std::string> chooseTranscriptionLocale(const std::string& fileLabel,
                                                         const std::vector<std::string>& locales) override;

    // The parts, for tests and the screenshot script.
    [[nodiscard]] app::ProjectSession& session() noexcept { return session_; }
    [[nodiscard]] PreviewPlayer& player() noexcept { return player_; }
    [[nodiscard]] PreviewMonitor* monitor() const noexcept { return monitor_; }
    [[nodiscard]] TranscriptView* transcriptView() const noexcept { return transcript_; }
    [[nodiscard]] TimelineView* timelineView() const noexcept { return timeline_; }
    [[nodiscard]] AssistantPanel* assistantPanel() const noexcept { return assistant_; }
    [[nodiscard]] QLabel* statusLabel() const noexcept { return status_; }
    [[nodiscard]] QLabel* errorLabel() const noexcept { return errorText_; }
    [[nodiscard]] QFrame* errorBanner() const noexcept { return errorBanner_; }
    [[nodiscard]] QWidget* welcomePage() const noexcept { return welcome_; }
    [[nodiscard]] QAction* undoAction() const noexcept { return undo_; }
    [[nodiscard]] QAction* redoAction() const noexcept { return redo_; }
    /// Shows the session's state at once rather than at the next turn of the event loop.
    void refreshNow();

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    class Observer;

    void buildMenus();
    QWidget* buildWelcome();
    void scheduleRefresh();
    void refresh();
    void syncPreview();
    void playerMoved(double seconds);
    void syncStatus();
    void syncMenus();
    void applyAppearance(Appearance appearance);
    app::PipelineContext pipelineContext();
    void track(std::shared_ptr<app::PipelineRequest> request);
    void chooseAndImport();
    void chooseAndOpen();
    /// The export panel, then where to write the movie.
    void chooseAndExport();
    void chooseAndSaveAs();
    /// Where to save the project, asked with a file dialog; none when the user cancels.
    std::optional<std::filesystem::path> chooseBundle();
    /// Asks whether to save unsaved changes before `action` ("closing"...), saving them when told to;
    /// false when the user cancels or the save fails.
    bool settleUnsavedChanges(const std::string& action);
    /// Once the running import has finished, transcribes what it brought in.
    void continueImport();
    void beginTrim(app::TrimDragMode mode);
    void moveTrim(const std::string& clipID, app::TrimEdge edge, double seconds);
    void endTrim();
    /// Calls `edit`, showing what it throws in the error banner.
    void guarded(const std::function<void()>& edit);

    StudioServices services_;
    StudioPreferences preferences_;
    app::ProjectSession session_;
    QtMainLoop loop_;
    std::unique_ptr<CachedModelService> model_;
    PreviewPlayer player_;
    std::shared_ptr<Observer> observer_;
    std::vector<std::shared_ptr<app::PipelineRequest>> requests_;
    std::shared_ptr<RecordingLoad> loading_;
    std::unique_ptr<intelligence::TranscriptionProvider> transcription_;
    app::RecentProjectsStore recentProjects_;
    app::ProjectAutosaveController autosave_;
    // After the session and the loop: they go first, stopping their workers while both still exist.
    app::WaveformCache waveforms_;
    app::ProxyStore proxies_;
    // The import that a transcription follows, and the sources the bin held before it.
    struct PendingImport {
        std::shared_ptr<app::PipelineRequest> request;
        std::set<std::string> sourcesBefore;
    };
    std::optional<PendingImport> importing_;
    bool refreshPending_ = false;
    std::string shownSeekToken_;
    std::optional<app::TrimDragMode> trimMode_;  // while an edge is dragged

    QStackedWidget* center_ = nullptr;
    QWidget* welcome_ = nullptr;
    PreviewMonitor* monitor_ = nullptr;
    TranscriptView* transcript_ = nullptr;
    QFrame* coach_ = nullptr;
    TimelineView* timeline_ = nullptr;
    AssistantPanel* assistant_ = nullptr;
    QSplitter* columns_ = nullptr;
    QSplitter* rows_ = nullptr;
    QFrame* errorBanner_ = nullptr;
    QLabel* errorText_ = nullptr;
    QLabel* status_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QAction* undo_ = nullptr;
    QAction* redo_ = nullptr;
    QAction* showAssistant_ = nullptr;
};

}  // namespace morvane::studio
