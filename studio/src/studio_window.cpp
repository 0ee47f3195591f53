#include "studio_window.hpp"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QStyleFactory>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>
#include <chrono>

#include "assistant/assistant_panel.hpp"
#include "cached_model_service.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/app/session/chat_log.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "preview/preview_monitor.hpp"
#include "recording_loader.hpp"
#include "timeline/timeline_view.hpp"
#include "transcript/transcript_view.hpp"
#include "transcription_language_dialog.hpp"
#include "welcome_page.hpp"

namespace morvane::studio {

using app::ProjectPipeline::acceptRoughCut;
using intelligence::AssistantCommandID;

namespace {

QString qtext(const std::string& text) {
    return QString::fromStdString(text);
}

// A transcript written beside a recording: "talk.transcript.json" or "talk.json" for "talk.mp4".
std::optional<std::filesystem::path> transcriptBeside(const std::filesystem::path& media) {
    for (const char* suffix : {".transcript.json", ".json"}) {
        std::filesystem::path candidate = media.parent_path() / (media.stem().string() + suffix);
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error)) return candidate;
    }
    return std::nullopt;
}

}  // namespace

// The session holds its observers weakly; this one lives as long as the window.
class StudioWindow::Observer final : public app::ProjectSessionObserver {
  public:
    explicit Observer(StudioWindow& window) : window_(window) {}
    void projectSessionDidChange(app::ProjectSession& /*session*/) override { window_.scheduleRefresh(); }

  private:
    StudioWindow& window_;
};

StudioWindow::StudioWindow(StudioServices services, QWidget* parent)
    : QMainWindow(parent),
      services_(services),
      preferences_(services.preferences),
      loop_(this),
      model_(services.languageModel ? std::make_unique<CachedModelService>(
                                          *services.languageModel, [this] { return loop_.isMainThread(); })
                                    : nullptr),
      player_({.frameChanged = [this] { monitor_->canvas()->update(); },
               .positionChanged = [this](double seconds) { playerMoved(seconds); },
               .playingChanged = [this](bool) { monitor_->refresh(); },
               .failed = [this](const std::string& reason) { session_.setError("Preview: " + reason); }}),
      observer_(std::make_shared<Observer>(*this)),
      recentProjects_(services.preferences),
      autosave_(loop_, {.recentProjects = &recentProjects_}),
      waveforms_(loop_),
      proxies_(loop_) {
    setWindowTitle(QStringLiteral("Morvane"));
    setObjectName(QStringLiteral("studioWindow"));
    resize(1440, 900);
    setAcceptDrops(false);

    auto* central = new QWidget(this);
    auto* centralLayout = new QVBoxLayout(central);
    centralLayout->setContentsMargins(0, 0, 0, 0);
    centralLayout->setSpacing(0);

    // The error banner: the one place errors show; it stays until dismissed or the next success.
    errorBanner_ = new QFrame(central);
    errorBanner_->setObjectName(QStringLiteral("errorBanner"));
    errorBanner_->setStyleSheet(QStringLiteral(
        "#errorBanner { background: #c8372d; } #errorBanner QLabel { color: white; } "
        "#errorBanner QPushButton { color: white; background: transparent; border: 1px solid white; "
        "border-radius: 3px; padding: 2px 10px; }"));
    auto* bannerLayout = new QHBoxLayout(errorBanner_);
    bannerLayout->setContentsMargins(12, 6, 12, 6);
    errorText_ = new QLabel(errorBanner_);
    errorText_->setWordWrap(true);
    errorText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* dismiss = new QPushButton(QStringLiteral("Dismiss"), errorBanner_);
    bannerLayout->addWidget(errorText_, 1);
    bannerLayout->addWidget(dismiss);
    QObject::connect(dismiss, &QPushButton::clicked, [this] { session_.setError(std::nullopt); });
    errorBanner_->hide();
    centralLayout->addWidget(errorBanner_);

    // The transcript, with its one-time hint.
    auto* transcriptPanel = new QWidget(central);
    auto* transcriptLayout = new QVBoxLayout(transcriptPanel);
    transcriptLayout->setContentsMargins(0, 0, 0, 0);
    transcriptLayout->setSpacing(0);
    coach_ = new QFrame(transcriptPanel);
    coach_->setObjectName(QStringLiteral("transcriptCoach"));
    coach_->setStyleSheet(
        QStringLiteral("#transcriptCoach { background: #e7f1ff; } #transcriptCoach QLabel { "
                       "color: #1d2b40; }"));
    auto* coachLayout = new QHBoxLayout(coach_);
    coachLayout->setContentsMargins(10, 6, 6, 6);
    auto* coachText =
        new QLabel(QStringLiteral("Click a word to play from it. Select words and press Delete to "
                                  "cut them; Delete again brings them back."),
                   coach_);
    coachText->setWordWrap(true);
    auto* coachClose = new QPushButton(QStringLiteral("Got it"), coach_);
    coachLayout->addWidget(coachText, 1);
    coachLayout->addWidget(coachClose);
    QObject::connect(coachClose, &QPushButton::clicked, [this] {
        preferences_.setDidDismissTranscriptCoach(true);
        coach_->hide();
    });
    transcript_ = new TranscriptView(transcriptPanel);
    transcript_->onSeek = [this](double seconds) { session_.requestSeek(seconds); };
    transcript_->onStrike = [this](const std::set<int>& ids, bool removed) { strikeWords(ids, removed); };
    transcriptLayout->addWidget(coach_);
    transcriptLayout->addWidget(transcript_, 1);

    // The preview, or the welcome page before there is anything to preview.
    center_ = new QStackedWidget(central);
    welcome_ = new WelcomePage({.newProject = [this] { newProject(); },
                                .importMedia = [this] { chooseAndImport(); },
                                .dropFiles = [this](const auto& files) { openFiles(files); },
                                .openRecent = [this](const auto& bundle) { openProject(bundle); }},
                               center_);
    monitor_ = new PreviewMonitor(player_, center_);
    monitor_->canvas()->onDropFiles = [this](const auto& files) { openFiles(files); };
    monitor_->onVolumeChanged = [this](double volume) { preferences_.setPreviewVolume(volume); };
    center_->addWidget(welcome_);
    center_->addWidget(monitor_);

    assistant_ =
        new AssistantPanel({.runCommand = [this](AssistantCommandID id) { runCommand(id); },
                            .runInstruction = [this](const std::string& text) { runInstruction(text); },
                            .restoreCheckpoint = [this](const std::string& id) { restoreCheckpoint(id); },
                            .accept = [this] { acceptCut(); },
                            .reject = [this] { rejectCut(); },
                            .saveCheckpoint = [this] { saveCheckpoint(); }},
                           central);

    TimelineView::Actions timelineActions;
    timelineActions.select = [this](const std::string& id, bool additive) {
        if (!additive) {
            session_.selectClip(id);
            return;
        }
        std::set<std::string> ids = session_.selectedClipIDs;
        if (!ids.insert(id).second) ids.erase(id);
        session_.selectClips(ids, session_.selectedClipID, std::nullopt);
    };
    timelineActions.clearSelection = [this] { session_.selectClip(std::nullopt); };
    timelineActions.seek = [this](double seconds) { session_.requestSeekToComposition(seconds); };
    timelineActions.trimBegan = [this](const std::string&, app::TrimEdge, app::TrimDragMode mode) {
        beginTrim(mode);
    };
    timelineActions.trimMoved = [this](const std::string& id, app::TrimEdge edge, double seconds) {
        moveTrim(id, edge, seconds);
    };
    timelineActions.trimEnded = [this] { endTrim(); };
    timelineActions.zoomChanged = [this](double zoom) { preferences_.setTimelineZoom(zoom); };
    timeline_ = new TimelineView(std::move(timelineActions), central);
    timeline_->setZoom(preferences_.timelineZoom());

    columns_ = new QSplitter(Qt::Horizontal, central);
    columns_->addWidget(transcriptPanel);
    columns_->addWidget(center_);
    columns_->addWidget(assistant_);
    columns_->setStretchFactor(0, 0);
    columns_->setStretchFactor(1, 1);
    columns_->setStretchFactor(2, 0);
    const int transcriptWidth = preferences_.panelSize(StudioPreferences::transcriptWidth, 380);
    const int assistantWidth = preferences_.panelSize(StudioPreferences::assistantWidth, 380);
    columns_->setSizes({transcriptWidth, 1440 - transcriptWidth - assistantWidth, assistantWidth});
    rows_ = new QSplitter(Qt::Vertical, central);
    rows_->addWidget(columns_);
    rows_->addWidget(timeline_);
    rows_->setStretchFactor(0, 1);
    rows_->setStretchFactor(1, 0);
    const int timelineHeight = preferences_.panelSize(StudioPreferences::timelineHeight, 230);
    rows_->setSizes({900 - timelineHeight, timelineHeight});
    QObject::connect(columns_, &QSplitter::splitterMoved, [this] {
        const QList<int> sizes = columns_->sizes();
        preferences_.setPanelSize(StudioPreferences::transcriptWidth, sizes[0]);
        if (sizes[2] > 0) preferences_.setPanelSize(StudioPreferences::assistantWidth, sizes[2]);
    });
    QObject::connect(rows_, &QSplitter::splitterMoved, [this] {
        preferences_.setPanelSize(StudioPreferences::timelineHeight, rows_->sizes()[1]);
    });
    centralLayout->addWidget(rows_, 1);
    setCentralWidget(central);

    // The status line: the session's message, the running job's progress, a way to stop it.
    status_ = new QLabel(this);
    status_->setObjectName(QStringLiteral("statusMessage"));
    progress_ = new QProgressBar(this);
    progress_->setMaximumWidth(180);
    progress_->setTextVisible(false);
    progress_->hide();
    cancel_ = new QPushButton(QStringLiteral("Cancel"), this);
    cancel_->hide();
    QObject::connect(cancel_, &QPushButton::clicked, [this] { cancelWork(); });
    statusBar()->addWidget(status_, 1);
    statusBar()->addPermanentWidget(progress_);
    statusBar()->addPermanentWidget(cancel_);

    buildMenus();
    assistant_->setVisible(!preferences_.assistantCollapsed());
    coach_->setVisible(!preferences_.didDismissTranscriptCoach());
    monitor_->volumeSlider()->setValue(static_cast<int>(std::lround(preferences_.previewVolume() * 100.0)));
    applyAppearance(preferences_.appearance());

    session_.addObserver(observer_);
    session_.onNotification([this](app::SessionNotification, app::ProjectSession&) { scheduleRefresh(); });
    app::TimelinePlanBridge::bootstrapEmptyTimeline(session_);
    autosave_.attach(session_);
    refreshNow();
}

StudioWindow::~StudioWindow() {
    // Workers post back to this window's loop and session: stop them and let their last steps run first.
    cancelWork();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (isWorking() && std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    loading_.reset();
    importing_.reset();
    requests_.clear();
    autosave_.detach();
}

void StudioWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    QAction* create = file->addAction(QStringLiteral("&New Project"), [this] { newProject(); });
    create->setShortcut(QKeySequence::New);
    QAction* import = file->addAction(QStringLiteral("&Import Media…"), [this] { chooseAndImport(); });
    import->setShortcut(QKeySequence(QStringLiteral("Ctrl+I")));
    QAction* open = file->addAction(QStringLiteral("&Open…"), [this] { chooseAndOpen(); });
    open->setShortcut(QKeySequence::Open);
    file->addSeparator();
    QAction* save = file->addAction(QStringLiteral("&Save"), [this] { saveProject(); });
    save->setShortcut(QKeySequence::Save);
    QAction* saveAs = file->addAction(QStringLiteral("Save &As…"), [this] { chooseAndSaveAs(); });
    saveAs->setShortcut(QKeySequence::SaveAs);
    file->addSeparator();
    QAction* exportMovie = file->addAction(QStringLiteral("&Export…"), [this] { chooseAndExport(); });
    exportMovie->setShortcut(QKeySequence(QStringLiteral("Ctrl+E")));
    file->addSeparator();
    QAction* quit = file->addAction(QStringLiteral("&Quit"), [this] { close(); });
    quit->setShortcut(QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    undo_ = edit->addAction(QStringLiteral("Undo"), [this] { undo(); });
    undo_->setShortcut(QKeySequence::Undo);
    redo_ = edit->addAction(QStringLiteral("Redo"), [this] { redo(); });
    redo_->setShortcuts({QKeySequence::Redo, QKeySequence(QStringLiteral("Ctrl+Shift+Z"))});
    edit->addSeparator();
    QAction* remove = edit->addAction(QStringLiteral("Delete"), [this] { deleteSelection(false); });
    remove->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});
    QAction* ripple = edit->addAction(QStringLiteral("Ripple Delete"), [this] { deleteSelection(true); });
    ripple->setShortcut(QKeySequence(QStringLiteral("Shift+Del")));
    QAction* split = edit->addAction(QStringLiteral("Split at Playhead"), [this] { splitAtPlayhead(); });
    split->setShortcut(QKeySequence(Qt::Key_S));
    edit->addAction(QStringLiteral("Join Clips"), [this] { joinSelection(); });
    edit->addSeparator();
    edit->addAction(QStringLiteral("Save Checkpoint"), [this] { saveCheckpoint(); });

    // Playback keys act wherever the focus is, except while typing: text boxes take their own keys first.
    QMenu* playback = menuBar()->addMenu(QStringLiteral("&Playback"));
    QAction* toggle = playback->addAction(QStringLiteral("Play / Pause"), [this] { player_.togglePlay(); });
    toggle->setShortcut(QKeySequence(Qt::Key_Space));
    QAction* backwards = playback->addAction(QStringLiteral("Play Backwards"), [this] {
        player_.play(player_.isPlaying() && player_.rate() < 0 ? std::max(player_.rate() * 2, -4.0) : -1.0);
    });
    backwards->setShortcut(QKeySequence(Qt::Key_J));
    QAction* stop = playback->addAction(QStringLiteral("Pause"), [this] { player_.pause(); });
    stop->setShortcut(QKeySequence(Qt::Key_K));
    QAction* forwards = playback->addAction(QStringLiteral("Play Forwards"), [this] {
        player_.play(player_.isPlaying() && player_.rate() > 0 ? std::min(player_.rate() * 2, 4.0) : 1.0);
    });
    forwards->setShortcut(QKeySequence(Qt::Key_L));
    playback->addSeparator();
    QAction* back = playback->addAction(QStringLiteral("Previous Frame"), [this] { player_.stepFrames(-1); });
    back->setShortcut(QKeySequence(Qt::Key_Left));
    QAction* next = playback->addAction(QStringLiteral("Next Frame"), [this] { player_.stepFrames(1); });
    next->setShortcut(QKeySequence(Qt::Key_Right));
    QAction* start = playback->addAction(QStringLiteral("Go to Start"), [this] { player_.seek(0.0); });
    start->setShortcut(QKeySequence(Qt::Key_Home));

    QMenu* view = menuBar()->addMenu(QStringLiteral("&View"));
    showAssistant_ = view->addAction(QStringLiteral("Show Assistant"));
    showAssistant_->setCheckable(true);
    showAssistant_->setChecked(!preferences_.assistantCollapsed());
    QObject::connect(showAssistant_, &QAction::toggled, [this](bool shown) {
        assistant_->setVisible(shown);
        preferences_.setAssistantCollapsed(!shown);
    });
    QAction* zoomIn = view->addAction(QStringLiteral("Zoom In Timeline"), [this] {
        timeline_->setZoom(timeline_->zoom() * 1.5);
        preferences_.setTimelineZoom(timeline_->zoom());
    });
    zoomIn->setShortcut(QKeySequence::ZoomIn);
    QAction* zoomOut = view->addAction(QStringLiteral("Zoom Out Timeline"), [this] {
        timeline_->setZoom(timeline_->zoom() / 1.5);
        preferences_.setTimelineZoom(timeline_->zoom());
    });
    zoomOut->setShortcut(QKeySequence::ZoomOut);
    QMenu* appearance = view->addMenu(QStringLiteral("Appearance"));
    auto* group = new QActionGroup(appearance);
    for (const auto& [choice, title] :
         {std::pair{Appearance::system, "As the Desktop"}, std::pair{Appearance::light, "Light"},
          std::pair{Appearance::dark, "Dark"}}) {
        QAction* action = appearance->addAction(QString::fromUtf8(title));
        action->setCheckable(true);
        action->setChecked(preferences_.appearance() == choice);
        group->addAction(action);
        QObject::connect(action, &QAction::triggered, [this, choice = choice] {
            preferences_.setAppearance(choice);
            applyAppearance(choice);
        });
    }
    for (QAction* action : {toggle, backwards, stop, forwards, back, next, start, split}) {
        action->setShortcutContext(Qt::WindowShortcut);
    }
}

void StudioWindow::applyAppearance(Appearance appearance) {
    QPalette palette = QApplication::style()->standardPalette();
    if (appearance == Appearance::dark) {
        palette = QPalette(QColor(53, 56, 60));
        palette.setColor(QPalette::Base, QColor(36, 38, 41));
        palette.setColor(QPalette::AlternateBase, QColor(44, 47, 51));
        palette.setColor(QPalette::Text, QColor(230, 230, 230));
        palette.setColor(QPalette::WindowText, QColor(230, 230, 230));
        palette.setColor(QPalette::ButtonText, QColor(230, 230, 230));
        palette.setColor(QPalette::PlaceholderText, QColor(150, 150, 150));
        palette.setColor(QPalette::Highlight, QColor(58, 110, 190));
        palette.setColor(QPalette::HighlightedText, Qt::white);
    } else if (appearance == Appearance::light) {
        palette = QPalette(QColor(239, 239, 239));
    }
    QApplication::setPalette(palette);
}

app::PipelineContext StudioWindow::pipelineContext() {
    return {.mainLoop = loop_,
            .languageModel = model_.get(),
            .delegate = this,
            .preferences = &services_.preferences,
            .transcription = transcription_.get(),
            .waveforms = &waveforms_,
            .proxies = &proxies_};
}

void StudioWindow::track(std::shared_ptr<app::PipelineRequest> request) {
    std::erase_if(requests_, [](const auto& r) { return r->isFinished(); });
    if (request && !request->isFinished()) requests_.push_back(std::move(request));
    scheduleRefresh();
}

bool StudioWindow::isWorking() const {
    const bool requests =
        std::any_of(requests_.begin(), requests_.end(), [](const auto& r) { return !r->isFinished(); });
    return requests || importing_ || (loading_ && !loading_->isFinished());
}

void StudioWindow::cancelWork() {
    importing_.reset();
    for (const auto& request : requests_)
        request->cancel();
    if (loading_) loading_->cancel();
}

void StudioWindow::guarded(const std::function<void()>& edit) {
    try {
        edit();
    } catch (const std::exception& error) {
        session_.setError(error.what());
    }
}

void StudioWindow::openFiles(const std::vector<std::filesystem::path>& files) {
    if (files.empty()) return;
    if (isWorking()) {
        session_.setError(
            "Wait for the running task to finish (or cancel it) before bringing in more media.");
        return;
    }
    const std::filesystem::path media = std::filesystem::absolute(files.front());
    if (const auto bundle = app::ProjectBundleIO::resolveOpenURL(media)) {
        openProject(*bundle);
        return;
    }
    if (const auto transcript = transcriptBeside(media)) {
        openRecording(media, *transcript);
        return;
    }
    player_.pause();
    // Made afresh for each import so that a recognizer chosen in the preferences meanwhile is the one used.
    transcription_ = intelligence::makeTranscriptionProvider(services_.preferences);
    PendingImport pending;
    for (const auto& entry : session_.mediaBin)
        pending.sourcesBefore.insert(entry.id);
    pending.request = app::ProjectPipeline::importMedia(session_, media, pipelineContext());
    importing_ = std::move(pending);
    track(importing_->request);
}

void StudioWindow::continueImport() {
    if (!importing_ || !importing_->request->isFinished()) return;
    const std::set<std::string> before = std::move(importing_->sourcesBefore);
    importing_.reset();
    // A failed import added nothing, and its reason is in the banner already.
    for (const auto& entry : session_.mediaBin) {
        if (before.contains(entry.id) || !entry.hasAudio) continue;
        track(app::ProjectPipeline::transcribeMedia(session_, pipelineContext(), {.sourceID = entry.id}));
        return;
    }
}

void StudioWindow::openRecording(const std::filesystem::path& media,
                                 const std::filesystem::path& transcript) {
    player_.pause();
    loading_ = RecordingLoader::open(session_, loop_, std::filesystem::absolute(media),
                                     std::filesystem::absolute(transcript));
    scheduleRefresh();
}

void StudioWindow::chooseAndImport() {
    const QString chosen = QFileDialog::getOpenFileName(
        this, QStringLiteral("Import Media"), QString(),
        QStringLiteral(
            "Media (*.mp4 *.mov *.m4v *.mkv *.webm *.avi *.m4a *.aac *.wav *.aiff *.aif *.mp3);;All "
            "files (*)"));
    if (!chosen.isEmpty()) openFiles({chosen.toStdString()});
}

std::optional<std::string> StudioWindow::chooseTranscriptionLocale(const std::string& fileLabel,
                                                                   const std::vector<std::string>& locales) {
    TranscriptionLanguageDialog dialog(fileLabel, locales, services_.preferences, this);
    if (dialog.exec() != QDialog::Accepted) return std::nullopt;
    return dialog.chosenLocale();
}

void StudioWindow::newProject() {
    if (isWorking() || !settleUnsavedChanges("starting a new project")) return;
    player_.pause();
    session_.resetForNewProject("Untitled Project");
    session_.statusMessage = "Untitled Project — import media to begin.";
    session_.statusKind = app::SessionStatusKind::info;
    session_.notifyChange();
}

void StudioWindow::runCommand(AssistantCommandID id) {
    player_.pause();
    track(app::ProjectPipeline::applyCommand(session_, id, pipelineContext()));
}

void StudioWindow::runInstruction(const std::string& instruction) {
    player_.pause();
    session_.instruction = instruction;
    track(app::ProjectPipeline::applyInstruction(session_, pipelineContext()));
}

void StudioWindow::acceptCut() {
    guarded([this] {
        if (session_.isReviewingProposal()) {
            app::ProjectPipeline::acceptRoughCut(session_);
        } else {
            app::ProjectPipeline::acceptTranscriptCut(session_);
        }
    });
}

void StudioWindow::rejectCut() {
    guarded([this] {
        if (session_.isReviewingProposal()) {
            app::ProjectPipeline::rejectRoughCut(session_);
        } else {
            app::ProjectPipeline::resetTranscriptCut(session_);
        }
    });
}

void StudioWindow::strikeWords(const std::set<int>& wordIDs, bool removed) {
    guarded([&] { app::ProjectPipeline::toggleWords(session_, wordIDs, removed); });
}

void StudioWindow::restoreCheckpoint(const std::string& messageID) {
    app::ChatLog::restoreFromMessage(session_, messageID);
}

void StudioWindow::saveCheckpoint() {
    if (!session_.hasProject()) return;
    guarded([this] {
        app::EditCoordinator::requireUnlocked(session_);
        const int number = static_cast<int>(session_.namedCheckpoints.size()) + 1;
        session_.saveNamedCheckpoint("Checkpoint " + std::to_string(number));
    });
}

void StudioWindow::undo() {
    app::EditCoordinator::undo(session_);
}

void StudioWindow::redo() {
    app::EditCoordinator::redo(session_);
}

void StudioWindow::splitAtPlayhead() {
    const double at = session_.playheadCompositionSeconds.value_or(player_.position());
    const std::vector<std::string> selected(session_.selectedClipIDs.begin(), session_.selectedClipIDs.end());
    guarded([&] {
        app::EditCoordinator::perform(session_, "Split Clip", [&] {
            if (selected.empty()) {
                app::TimelineEditor::splitAllClipsAtPlayhead(session_, at);
            } else {
                app::TimelineEditor::splitClips(session_, selected, at);
            }
        });
    });
}

void StudioWindow::deleteSelection(bool ripple) {
    if (transcript_->hasFocus()) {
        transcript_->strikeSelection();
        return;
    }
    if (session_.selectedClipIDs.empty() || !session_.timeline) return;
    // Off the storyline a deleted clip leaves a gap; a ripple delete moves what follows on its track up by
    // the deleted clip's length, last clips first so that each move lands on free time.
    struct Gap {
        std::string trackID;
        double start;
        double length;
    };
    std::vector<Gap> gaps;
    for (const auto& id : session_.selectedClipIDs) {
        std::string trackID;
        const app::TimelineClip* clip = session_.timeline->findClip(id, &trackID);
        if (!clip || !ripple) continue;
        if (trackID == app::TimelineTrackIDs::source || trackID == app::TimelineTrackIDs::program) continue;
        gaps.push_back({trackID, clip->timelineStart.seconds(),
                        app::TimelinePlanBridge::programDuration(*clip).seconds()});
    }
    guarded([&] {
        app::EditCoordinator::perform(session_, ripple ? "Ripple Delete" : "Delete Clip", [&] {
            app::TimelineEditor::deleteSelectedClips(session_);
            std::sort(gaps.begin(), gaps.end(), [](const Gap& a, const Gap& b) { return a.start > b.start; });
            for (const Gap& gap : gaps) {
                std::vector<std::pair<double, std::string>> later;
                for (const auto& clip : session_.timeline->clips(gap.trackID)) {
                    if (clip.timelineStart.seconds() >= gap.start)
                        later.emplace_back(clip.timelineStart.seconds(), clip.id);
                }
                std::sort(later.begin(), later.end());
                for (const auto& [start, id] : later)
                    app::TimelineEditor::moveClip(session_, id, start - gap.length);
            }
        });
    });
}

void StudioWindow::joinSelection() {
    if (const auto failure = app::TimelineEditor::diagnoseJoinSelectedClips(session_)) {
        session_.setError(failure->message());
        return;
    }
    guarded([&] {
        app::EditCoordinator::perform(session_, "Join Clips",
                                      [&] { app::TimelineEditor::joinSelectedClips(session_); });
    });
}

void StudioWindow::beginTrim(app::TrimDragMode mode) {
    // A drag is many small trims and one undo step.
    if (session_.hasExclusiveLock() || app::EditCoordinator::isInGesture()) return;
    trimMode_ = mode;
    app::EditCoordinator::beginGesture("Trim Clip", session_);
}

void StudioWindow::moveTrim(const std::string& clipID, app::TrimEdge edge, double seconds) {
    if (!trimMode_) return;
    if (app::TimelineEditor::trimClip(session_, clipID, edge, seconds, *trimMode_)) session_.notifyChange();
}

void StudioWindow::endTrim() {
    if (!trimMode_) return;
    trimMode_.reset();
    guarded([&] {
        app::EditCoordinator::endGesture(session_,
                                         [&] { app::EditCoordinator::finalizeStructuralChange(session_); });
    });
}

void StudioWindow::showAlert(const std::string& title, const std::string& text) {
    // Not modal: the pipeline calls this in the middle of its work, which must not wait on the user.
    auto* box = new QMessageBox(QMessageBox::Information, qtext(title), qtext(text), QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void StudioWindow::playerMoved(double seconds) {
    monitor_->refresh();
    session_.updatePlayhead(seconds, true);
}

void StudioWindow::scheduleRefresh() {
    if (refreshPending_) return;
    refreshPending_ = true;
    // Many changes in one turn of the event loop make one refresh.
    QTimer::singleShot(0, this, [this] { refresh(); });
}

void StudioWindow::refreshNow() {
    refresh();
}

void StudioWindow::refresh() {
    refreshPending_ = false;
    std::erase_if(requests_, [](const auto& r) { return r->isFinished(); });
    if (loading_ && loading_->isFinished()) {
        loading_.reset();
        waveforms_.scheduleAll(session_);  // the opened recording's waveform
    }
    // The language question is modal: asked from its own turn of the event loop, not from inside a refresh.
    if (importing_ && importing_->request->isFinished())
        QTimer::singleShot(0, this, [this] { continueImport(); });
    syncPreview();
    transcript_->sync(session_);
    timeline_->sync(session_);
    assistant_->sync(session_);
    syncStatus();
    syncMenus();
}

void StudioWindow::syncPreview() {
    const bool loading = loading_ && !loading_->isFinished();
    const bool hasPicture = session_.hasProject() && session_.editPlan.has_value();
    center_->setCurrentWidget(hasPicture || loading ? static_cast<QWidget*>(monitor_) : welcome_);
    if (center_->currentWidget() == welcome_)
        static_cast<WelcomePage*>(welcome_)->setRecentProjects(recentProjects_.all());
    static_cast<WelcomePage*>(welcome_)->setMessage(qtext(session_.statusMessage));
    monitor_->canvas()->setPlaceholder(
        loading ? QStringLiteral("Opening…")
                : QStringLiteral("Create a project or drop a file on the preview."));
    player_.setPlan(session_.editPlan, proxies_.proxyOverrides(session_));
    if (session_.seekToken != shownSeekToken_) {
        shownSeekToken_ = session_.seekToken;
        if (session_.seekCompositionSeconds || session_.seekSeconds) {
            player_.seek(session_.seekCompositionSeconds.value_or(session_.seekSeconds.value_or(0.0)));
        }
    }
    monitor_->refresh();
    const std::string title = session_.projectName + (session_.hasUnsavedChanges() ? " — edited" : "");
    setWindowTitle(session_.hasProject() ? qtext(title) + QStringLiteral(" — Morvane")
                                         : QStringLiteral("Morvane"));
}

void StudioWindow::syncStatus() {
    status_->setText(qtext(session_.statusMessage));
    QString color;
    switch (session_.statusKind) {
        case app::SessionStatusKind::success:
            color = QStringLiteral("#2f8f4e");
            break;
        case app::SessionStatusKind::error:
            color = QStringLiteral("#c8372d");
            break;
        case app::SessionStatusKind::working:
            color = QStringLiteral("#2d6fc8");
            break;
        case app::SessionStatusKind::info:
            break;
    }
    status_->setStyleSheet(color.isEmpty() ? QString() : QStringLiteral("color: %1;").arg(color));

    // The first foreground job shows its progress; none known makes the bar a busy one.
    const app::MediaJob* job = nullptr;
    for (const auto& j : session_.activeJobs) {
        if (!app::isBackground(j.kind)) {
            job = &j;
            break;
        }
    }
    progress_->setVisible(job != nullptr || isWorking());
    if (job && job->progress) {
        progress_->setRange(0, 1000);
        progress_->setValue(static_cast<int>(std::lround(std::clamp(*job->progress, 0.0, 1.0) * 1000)));
    } else {
        progress_->setRange(0, 0);
    }
    cancel_->setVisible(isWorking());

    errorBanner_->setVisible(session_.errorMessage.has_value());
    errorText_->setText(qtext(session_.errorMessage.value_or("")));
}

void StudioWindow::syncMenus() {
    undo_->setText(qtext(session_.editHistory.undoMenuTitle()));
    redo_->setText(qtext(session_.editHistory.redoMenuTitle()));
    undo_->setEnabled(!session_.editHistory.undoStack().empty() && !session_.hasExclusiveLock());
    redo_->setEnabled(!session_.editHistory.redoStack().empty() && !session_.hasExclusiveLock());
}

void StudioWindow::closeEvent(QCloseEvent* event) {
    player_.pause();
    if (!settleUnsavedChanges("closing")) {
        event->ignore();
        return;
    }
    cancelWork();
    event->accept();
}

}  // namespace morvane::studio
