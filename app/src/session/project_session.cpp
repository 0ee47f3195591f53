#include "morvane/app/session/project_session.hpp"

#include <algorithm>
#include <unordered_map>

#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/support/uuid.hpp"

namespace morvane::app {

using intelligence::TranscriptSegment;

namespace {

constexpr auto kPlayheadNotifyInterval = std::chrono::milliseconds(150);

bool isGeneratedTextSource(const std::string& sourceID) {
    return sourceID == "caption" || sourceID == "text";
}

}  // namespace

ProjectSession::ProjectSession()
    : lastPlayheadNotify(std::chrono::steady_clock::now()), seekToken(makeUUID()) {}

// Observers and notifications.

void ProjectSession::addObserver(const std::shared_ptr<ProjectSessionObserver>& observer) {
    observers_.push_back(observer);
    std::erase_if(observers_, [](const auto& weak) { return weak.expired(); });
}

void ProjectSession::notifyChange() {
    std::erase_if(observers_, [](const auto& weak) { return weak.expired(); });
    // Observers may register others while being told; tell the ones present now.
    const auto current = observers_;
    for (const auto& weak : current) {
        if (auto observer = weak.lock()) observer->projectSessionDidChange(*this);
    }
}

void ProjectSession::onNotification(NotificationHandler handler) {
    notificationHandlers_.push_back(std::move(handler));
}

void ProjectSession::post(SessionNotification notification) {
    for (const auto& handler : notificationHandlers_)
        handler(notification, *this);
}

// Status and jobs.

void ProjectSession::setBusy(bool busy, std::optional<std::string> message, MediaJobKind kind) {
    if (!busy) {
        if (legacyJobID_) {
            const std::string id = *legacyJobID_;
            legacyJobID_.reset();
            endJob(id);
        }
        if (message) statusMessage = *message;
        notifyChange();
        return;
    }
    const bool shared =
        legacyJobID_ && std::any_of(activeJobs.begin(), activeJobs.end(),
                                    [&](const MediaJob& job) { return job.id == *legacyJobID_; });
    if (shared) {
        updateJob(*legacyJobID_, std::nullopt, message);
    } else {
        MediaJob job{.id = makeUUID(), .kind = kind, .title = message.value_or(statusMessage)};
        activeJobs.push_back(job);
        const bool foreground = !isBackground(kind);
        if (foreground) {
            statusKind = SessionStatusKind::working;
            statusMessage = job.title;
        }
        post(SessionNotification::mediaJobsDidChange);
        if (foreground) notifyChange();
        legacyJobID_ = job.id;
    }
    if (message) statusMessage = *message;
    notifyChange();
}

std::string ProjectSession::beginJob(MediaJobKind kind, std::string title,
                                     std::optional<std::string> sourceID, bool isCancellable) {
    MediaJob job{.id = makeUUID(),
                 .kind = kind,
                 .sourceID = std::move(sourceID),
                 .title = std::move(title),
                 .isCancellable = isCancellable};
    const bool foreground = !isBackground(kind);
    if (foreground) {
        statusKind = SessionStatusKind::working;
        statusMessage = job.title;
    }
    activeJobs.push_back(job);
    post(SessionNotification::mediaJobsDidChange);
    if (foreground) notifyChange();
    return job.id;
}

void ProjectSession::updateJob(const std::string& id, std::optional<double> progress,
                               std::optional<std::string> title) {
    const auto job =
        std::find_if(activeJobs.begin(), activeJobs.end(), [&](const MediaJob& j) { return j.id == id; });
    if (job == activeJobs.end()) return;
    if (progress) job->progress = progress;
    if (title) {
        job->title = *title;
        if (!isBackground(job->kind)) statusMessage = *title;
    }
    post(SessionNotification::mediaJobsDidChange);
}

void ProjectSession::endJob(const std::string& id) {
    const auto job =
        std::find_if(activeJobs.begin(), activeJobs.end(), [&](const MediaJob& j) { return j.id == id; });
    if (job == activeJobs.end()) return;
    const bool background = isBackground(job->kind);
    activeJobs.erase(job);
    if (background) {
        post(SessionNotification::mediaJobsDidChange);
        return;
    }
    const bool foregroundRemains = std::any_of(activeJobs.begin(), activeJobs.end(),
                                               [](const MediaJob& j) { return !isBackground(j.kind); });
    if (!foregroundRemains && !errorMessage && statusKind == SessionStatusKind::working) {
        statusKind = SessionStatusKind::info;
    }
    post(SessionNotification::mediaJobsDidChange);
    notifyChange();
}

void ProjectSession::setSuccess(std::string message) {
    if (legacyJobID_) {
        const std::string id = *legacyJobID_;
        legacyJobID_.reset();
        endJob(id);
    }
    errorMessage.reset();
    statusMessage = std::move(message);
    statusKind = SessionStatusKind::success;
    notifyChange();
}

void ProjectSession::setError(std::optional<std::string> message) {
    if (legacyJobID_) {
        const std::string id = *legacyJobID_;
        legacyJobID_.reset();
        endJob(id);
    }
    statusKind = message ? SessionStatusKind::error : SessionStatusKind::info;
    errorMessage = std::move(message);
    notifyChange();
}

// Derived state.

bool ProjectSession::hasExclusiveLock() const noexcept {
    return std::any_of(activeJobs.begin(), activeJobs.end(),
                       [](const MediaJob& j) { return isExclusive(j.kind); });
}

bool ProjectSession::isBusy() const noexcept {
    return std::any_of(activeJobs.begin(), activeJobs.end(),
                       [](const MediaJob& j) { return !isBackground(j.kind); });
}

int ProjectSession::backgroundJobCount() const noexcept {
    return static_cast<int>(std::count_if(activeJobs.begin(), activeJobs.end(),
                                          [](const MediaJob& j) { return isBackground(j.kind); }));
}

bool ProjectSession::hasProject() const noexcept {
    return mediaURL || !mediaBin.empty() || timeline;
}

bool ProjectSession::hasUnsavedChanges() const {
    return projectURL ? isDirty : (isDirty || hasUserEditedContent());
}

bool ProjectSession::hasUserEditedContent() const {
    if (!mediaBin.empty() || transcript || segments || classification || !cutItems.empty()) return true;
    if (!editHistory.undoStack().empty()) return true;
    if (std::any_of(chatMessages.begin(), chatMessages.end(),
                    [](const ChatMessage& m) { return m.role == ChatMessage::Role::user; })) {
        return true;
    }
    if (timeline) {
        for (const auto& track : timeline->tracks) {
            if (!track.clips.empty()) return true;
        }
    }
    return false;
}

bool ProjectSession::isTranscriptDrafting() const {
    if (isReviewingProposal() || !transcript) return false;
    if (!removedWordIDs.empty()) return true;
    if (std::any_of(cutItems.begin(), cutItems.end(), [](const CutItem& i) { return !i.accepted; }))
        return true;
    return timeline && !timeline->clips(TimelineTrackIDs::program).empty();
}

bool ProjectSession::hasAnyTranscript() const {
    for (const auto& [id, record] : sourceTranscripts) {
        if (!record.transcript.words.empty()) return true;
    }
    return transcript && !transcript->words.empty();
}

CreatorWorkflowStep ProjectSession::workflowStep() const {
    if (!mediaURL) return CreatorWorkflowStep::noMedia;
    if (!segments) return CreatorWorkflowStep::needsTranscription;
    if (isReviewingProposal()) return CreatorWorkflowStep::reviewing;
    if (isBusy()) return CreatorWorkflowStep::editing;
    const auto& source = timeline ? timeline->clips(TimelineTrackIDs::source) : std::vector<TimelineClip>{};
    const bool anyAssembly = std::any_of(source.begin(), source.end(), [](const TimelineClip& c) {
        return c.assemblyRanges && !c.assemblyRanges->empty();
    });
    const bool programEmpty = !timeline || timeline->clips(TimelineTrackIDs::program).empty();
    if (!anyAssembly && programEmpty) {
        return source.size() >= 2 ? CreatorWorkflowStep::finishedCut : CreatorWorkflowStep::editing;
    }
    return CreatorWorkflowStep::finishedCut;
}

std::vector<int> ProjectSession::acceptedSegmentIDs() const {
    std::vector<int> ids;
    for (const auto& item : cutItems) {
        if (item.accepted) ids.push_back(item.segmentID);
    }
    return ids;
}

std::vector<int> ProjectSession::wordIDs(const TranscriptSegment& segment) const {
    std::vector<int> ids;
    if (!transcript || transcript->words.empty()) {
        for (int id = segment.wordStartID; id <= segment.wordEndID; ++id)
            ids.push_back(id);
        return ids;
    }
    // Word ids rise with time, so the segment's words are one stretch of the list.
    const auto& words = transcript->words;
    auto it = std::lower_bound(words.begin(), words.end(), segment.wordStartID,
                               [](const intelligence::TranscriptWord& w, int id) { return w.id < id; });
    for (; it != words.end() && it->id <= segment.wordEndID; ++it)
        ids.push_back(it->id);
    return ids;
}

bool ProjectSession::segmentHasKeptWords(const TranscriptSegment& segment) const {
    const auto ids = wordIDs(segment);
    return std::any_of(ids.begin(), ids.end(), [&](int id) { return !removedWordIDs.contains(id); });
}

int ProjectSession::keptSegmentCount() const {
    if (!segments || segments->segments.empty() || removedWordIDs.empty()) {
        return static_cast<int>(acceptedSegmentIDs().size());
    }
    return static_cast<int>(
        std::count_if(segments->segments.begin(), segments->segments.end(),
                      [&](const TranscriptSegment& s) { return segmentHasKeptWords(s); }));
}

bool ProjectSession::usesCompositionTimeline() const {
    const auto& source = timeline ? timeline->clips(TimelineTrackIDs::source) : std::vector<TimelineClip>{};
    const bool programEmpty = !timeline || timeline->clips(TimelineTrackIDs::program).empty();
    if (!source.empty()) {
        if (TimelinePlanBridge::storylineIsPackedCut(source) || programEmpty) return true;
    }
    if (editPlan && !playbackRanges.empty()) return true;
    if (!programEmpty) return true;
    return !playbackRanges.empty();
}

double ProjectSession::sourceDurationSeconds() const {
    if (mediaDurationSeconds && *mediaDurationSeconds > 0.0) return *mediaDurationSeconds;
    if (const MediaBinEntry* entry = binEntry(primarySourceID); entry && entry->durationSeconds > 0.0) {
        return entry->durationSeconds;
    }
    return transcript ? std::max(transcript->durationSeconds, 0.0) : 0.0;
}

std::optional<TimelineClip> ProjectSession::storylineClip(double programSeconds) const {
    for (const auto& clip : TimelinePlanBridge::primaryVideoClips(*this)) {
        const double start = clip.timelineStart.seconds();
        if (programSeconds >= start &&
            programSeconds < start + TimelinePlanBridge::programDuration(clip).seconds()) {
            return clip;
        }
    }
    return std::nullopt;
}

// Selection and the active transcript.

void ProjectSession::selectionChanged(std::optional<std::string> primary, std::set<std::string> ids,
                                      std::optional<TimelineLaneKind> laneKind) {
    if (primary == selectedClipID && ids == selectedClipIDs && laneKind == selectedLaneKind) return;
    selectedLaneKind = laneKind;
    attentionGapRanges.clear();
    selectedClipID = primary;
    selectedClipIDs = std::move(ids);
    if (primary) syncActiveTranscript(*primary);
    notifyChange();
}

void ProjectSession::selectClip(std::optional<std::string> clipID) {
    std::set<std::string> ids;
    if (clipID) ids.insert(*clipID);
    selectionChanged(std::move(clipID), std::move(ids), std::nullopt);
}

void ProjectSession::selectClips(const std::set<std::string>& ids, std::optional<std::string> primary,
                                 std::optional<TimelineLaneKind> laneKind) {
    if (!primary || !ids.contains(*primary)) {
        // std::set orders by the ids' text: independent of how the set was built.
        primary = ids.empty() ? std::nullopt : std::optional(*ids.begin());
    }
    selectionChanged(std::move(primary), ids, laneKind);
}

void ProjectSession::syncActiveTranscript(const std::string& clipID) {
    if (!timeline) return;
    if (const TimelineClip* clip = timeline->findClip(clipID)) applySourceTranscript(clip->sourceID);
}

void ProjectSession::commitSourceTranscript() {
    if (!transcriptSourceID || !transcript) return;
    sourceTranscripts[*transcriptSourceID] = SourceTranscriptRecord{
        *transcript, segments, std::vector<int>(removedWordIDs.begin(), removedWordIDs.end()), cutItems,
        mediaEvidence};
}

void ProjectSession::loadWorkingCopy(const SourceTranscriptRecord* record) {
    if (record) {
        transcript = record->transcript;
        segments = record->segments;
        removedWordIDs = std::set<int>(record->removedWordIDs.begin(), record->removedWordIDs.end());
        cutItems = record->cutItems;
        mediaEvidence = record->mediaEvidence;
    } else {
        transcript.reset();
        segments.reset();
        removedWordIDs.clear();
        cutItems.clear();
        mediaEvidence.reset();
    }
}

void ProjectSession::applySourceTranscript(const std::string& sourceID) {
    if (isReviewingProposal() || isGeneratedTextSource(sourceID)) return;
    commitSourceTranscript();
    if (transcriptSourceID == sourceID) return;
    transcriptSourceID = sourceID;
    const auto record = sourceTranscripts.find(sourceID);
    loadWorkingCopy(record == sourceTranscripts.end() ? nullptr : &record->second);
    rebuildPlaybackMap();
    notifyChange();
}

void ProjectSession::removeSourceTranscript(const std::string& sourceID) {
    sourceTranscripts.erase(sourceID);
    if (transcriptSourceID != sourceID) return;
    transcript.reset();
    segments.reset();
    removedWordIDs.clear();
    mediaEvidence.reset();
    if (!isReviewingProposal()) cutItems.clear();
}

void ProjectSession::syncActiveTranscriptToPlayhead() {
    if (isReviewingProposal()) return;
    if (selectedClipID && timeline) {
        std::string trackID;
        if (const TimelineClip* clip = timeline->findClip(*selectedClipID, &trackID)) {
            const bool onStoryline =
                trackID == TimelineTrackIDs::source || trackID == TimelineTrackIDs::program;
            if (onStoryline && !clip->isTextLike()) return;  // the selection wins over the playhead
        }
    }
    double programSeconds = playheadSeconds.value_or(0.0);
    if (usesCompositionTimeline()) {
        if (playheadCompositionSeconds) {
            programSeconds = *playheadCompositionSeconds;
        } else if (playheadSeconds) {
            auto mapped = PlaybackMapper::sourceToComposition(*playheadSeconds, playbackRanges);
            if (!mapped) mapped = PlaybackMapper::nearestComposition(*playheadSeconds, playbackRanges);
            programSeconds = mapped.value_or(*playheadSeconds);
        }
    }
    if (const auto clip = storylineClip(programSeconds)) applySourceTranscript(clip->sourceID);
}

// Seek and playhead.

void ProjectSession::requestSeek(double sourceSeconds) {
    auto composition = PlaybackMapper::sourceToComposition(sourceSeconds, playbackRanges);
    if (!composition && usesCompositionTimeline() && !playbackRanges.empty()) {
        if (const auto nearest = PlaybackMapper::nearestComposition(sourceSeconds, playbackRanges)) {
            composition = nearest;
            sourceSeconds = PlaybackMapper::compositionToSource(*nearest, playbackRanges);
        }
    }
    seekSeconds = sourceSeconds;
    playheadSeconds = sourceSeconds;
    seekCompositionSeconds = composition;
    playheadCompositionSeconds = composition;
    seekToken = makeUUID();
    notifyChange();
}

void ProjectSession::requestSeekToComposition(double compositionSeconds) {
    seekCompositionSeconds = compositionSeconds;
    playheadCompositionSeconds = compositionSeconds;
    seekSeconds = PlaybackMapper::compositionToSourceOptional(compositionSeconds, playbackRanges);
    seekToken = makeUUID();
    if (seekSeconds) playheadSeconds = seekSeconds;
    notifyChange();
}

void ProjectSession::updatePlayhead(double seconds, bool fromComposition) {
    if (fromComposition) {
        playheadCompositionSeconds = seconds;
        if (const auto source = PlaybackMapper::compositionToSourceOptional(seconds, playbackRanges)) {
            playheadSeconds = source;
        }
    } else {
        playheadSeconds = seconds;
        playheadCompositionSeconds = PlaybackMapper::sourceToComposition(seconds, playbackRanges);
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - lastPlayheadNotify < kPlayheadNotifyInterval) return;
    lastPlayheadNotify = now;
    syncActiveTranscriptToPlayhead();
    notifyChange();
}

// Review and the cut list.

void ProjectSession::beginProposalReview(EditableStateSnapshot baseline, std::optional<std::string> messageID,
                                         intelligence::EditProposal proposal) {
    proposalBaseline = std::move(baseline);
    proposalMessageID = std::move(messageID);
    pendingProposal = std::move(proposal);
    notifyChange();
}

void ProjectSession::clearProposalReview() {
    proposalBaseline.reset();
    proposalMessageID.reset();
    pendingProposal.reset();
    notifyChange();
}

void ProjectSession::seedCutItemsFromSegments(std::optional<std::string> reason) {
    cutItems.clear();
    if (segments) {
        for (const auto& segment : segments->segments) {
            cutItems.push_back(
                {segment.id, segment.text, segment.start, segment.end, reason, std::nullopt, true});
        }
    }
    rebuildPlaybackMap();
}

void ProjectSession::rebuildCutItems(const intelligence::ClassificationRun& run) {
    cutItems.clear();
    if (!segments) {
        removedWordIDs.clear();
        rebuildPlaybackMap();
        return;
    }
    const std::set<int> kept(run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end());
    std::set<int> removed;
    for (const auto& segment : segments->segments) {
        CutItem item{segment.id,
                     segment.text,
                     segment.start,
                     segment.end,
                     std::nullopt,
                     std::nullopt,
                     kept.contains(segment.id)};
        if (const auto* verdict = run.classification(segment.id)) {
            item.reason = verdict->reason;
            item.confidence = verdict->confidence;
        }
        if (!item.accepted) {
            for (int id : wordIDs(segment))
                removed.insert(id);
        }
        cutItems.push_back(std::move(item));
    }
    removedWordIDs = std::move(removed);
    rebuildPlaybackMap();
}

void ProjectSession::rebuildPlaybackMap() {
    const auto clips = TimelinePlanBridge::primaryVideoClips(*this);
    playbackRanges = clips.empty() ? PlaybackMapper::ranges(cutItems) : PlaybackMapper::ranges(clips);
}

// Sources, markers, projects.

std::string ProjectSession::nextSourceID(const std::set<std::string>& reserving) const {
    for (int n = 1;; ++n) {
        std::string candidate = "src" + std::to_string(n);
        const bool taken =
            reserving.contains(candidate) ||
            std::any_of(mediaBin.begin(), mediaBin.end(), [&](const auto& e) { return e.id == candidate; });
        if (!taken) return candidate;
    }
}

void ProjectSession::syncExtraSourcesFromMediaBin(const std::optional<std::filesystem::path>& bundle) {
    const auto base = bundle ? bundle : projectURL;
    for (const auto& entry : mediaBin)
        extraSources[entry.id] = entry.resolvedURL(base);
}

std::optional<std::string> ProjectSession::displayName(const std::optional<std::string>& sourceID) const {
    if (!sourceID) return std::nullopt;
    const MediaBinEntry* entry = binEntry(*sourceID);
    return entry ? std::optional(entry->label) : std::nullopt;
}

const MediaBinEntry* ProjectSession::binEntry(const std::string& sourceID) const {
    const auto it =
        std::find_if(mediaBin.begin(), mediaBin.end(), [&](const auto& e) { return e.id == sourceID; });
    return it == mediaBin.end() ? nullptr : &*it;
}

void ProjectSession::addMarker(double seconds, std::optional<std::string> name) {
    if (!timeline) return;
    const auto time = RationalTime::fromSeconds(std::max(seconds, 0.0), RationalTime::secondsTimescale);
    const std::string label = name.value_or("Marker " + std::to_string(timeline->markers.size() + 1));
    timeline->markers.push_back({makeUUID(), label, time});
    std::stable_sort(timeline->markers.begin(), timeline->markers.end(),
                     [](const TimelineMarker& a, const TimelineMarker& b) { return a.time < b.time; });
    isDirty = true;
    notifyChange();
}

std::string ProjectSession::saveNamedCheckpoint(const std::string& name) {
    EditableStateSnapshot snapshot = EditableStateSnapshot::capture(*this);
    ChatMessage message{.id = makeUUID(),
                        .role = ChatMessage::Role::system,
                        .text = name + " — double-click or Restore to return to this timeline.",
                        .date = std::chrono::system_clock::now()};
    chatMessages.push_back(message);
    notifyChange();
    // The snapshot is filed before the line offers Restore.
    cutCheckpoints[message.id] = std::move(snapshot);
    namedCheckpoints.push_back(
        {makeUUID(), name, std::chrono::system_clock::now(), message.id, statusMessage});
    for (auto& line : chatMessages) {
        if (line.id != message.id) continue;
        line = ChatMessage{
            line.id,   line.role, name + " — tap Restore checkpoint below to return to this timeline.",
            line.date, true,      false};
    }
    notifyChange();
    commitSourceTranscript();
    isDirty = true;
    notifyChange();
    return message.id;
}

void ProjectSession::resetForNewProject(const std::string& name) {
    mediaURL.reset();
    mediaTitle = name;
    projectName = name;
    projectURL.reset();
    isDirty = false;
    primarySourceID = "src1";
    transcriptSourceID.reset();
    removedWordIDs.clear();
    mediaBin.clear();
    transcript.reset();
    segments.reset();
    sourceTranscripts.clear();
    mediaEvidence.reset();
    publishChapters.clear();
    classification.reset();
    pendingProposal.reset();
    proposalBaseline.reset();
    proposalMessageID.reset();
    editPlan.reset();
    cutItems.clear();
    errorMessage.reset();
    lastAutosaveAt.reset();
    playheadSeconds.reset();
    mediaDurationSeconds.reset();
    mediaHasVideo = true;
    waveformEnvelope.reset();
    auxiliaryWaveforms.clear();
    timeline.reset();
    extraSources.clear();
    cursorTracks.clear();
    selectedClipID.reset();
    selectedClipIDs.clear();
    selectedLaneKind.reset();
    instruction.clear();
    chatMessages.clear();
    cutCheckpoints.clear();
    namedCheckpoints.clear();
    editHistory.clear();
    playbackRanges.clear();
    TimelinePlanBridge::bootstrapEmptyTimeline(*this);
}

}  // namespace morvane::app
