// The pipeline's media operations: importing files into the bin, relinking, removing, choosing the primary
// source and transcribing one. File copies, probes and recognition run on workers; the session is touched
// only on the main loop.

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <set>

#include "morvane/app/media/proxy_store.hpp"
#include "morvane/app/media/waveform_cache.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/engine/support/text.hpp"
#include "morvane/intelligence/evidence/media_evidence_builder.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/segmentation/segmenter.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;
namespace TranscriptionLocale = intelligence::TranscriptionLocale;

namespace {

constexpr double kStillSeconds = 5.0;

// "00:05", "12:40", "1:02:03": a source's length as the bin and the chat show it.
std::string binDuration(double seconds) {
    const auto total =
        static_cast<long long>(std::llround(std::max(std::isfinite(seconds) ? seconds : 0.0, 0.0)));
    if (total < 3600) return fmt::format("{:02}:{:02}", total / 60, total % 60);
    return fmt::format("{}:{:02}:{:02}", total / 3600, (total / 60) % 60, total % 60);
}

bool isStill(const fs::path& file) {
    return engine::CompositionBuilder::isImageFile(file.string());
}

MediaBinEntry* findEntry(ProjectSession& session, const std::string& sourceID) {
    const auto it = std::find_if(session.mediaBin.begin(), session.mediaBin.end(),
                                 [&](const MediaBinEntry& e) { return e.id == sourceID; });
    return it == session.mediaBin.end() ? nullptr : &*it;
}

// Ids handed to imports still running, so that two imports started together don't take the same one.
std::map<const ProjectSession*, std::set<std::string>>& reservedSourceIDs() {
    static std::map<const ProjectSession*, std::set<std::string>> reserved;
    return reserved;
}

bool refuseWhileLocked(ProjectSession& session) {
    if (!session.hasExclusiveLock()) return false;
    session.setError(EditRejection(EditRejection::Reason::documentLocked).what());
    return true;
}

// The session's primary fields taken from `entry`; any other primary steps down.
void adoptPrimary(ProjectSession& session, MediaBinEntry entry) {
    for (auto& other : session.mediaBin) {
        if (other.kind == MediaBinKind::primary && other.id != entry.id)
            other.kind = other.hasVideo ? MediaBinKind::broll : MediaBinKind::audio;
    }
    entry.kind = MediaBinKind::primary;
    if (MediaBinEntry* existing = findEntry(session, entry.id)) {
        *existing = entry;
    } else {
        session.mediaBin.push_back(entry);
    }
    session.primarySourceID = entry.id;
    session.mediaURL = entry.resolvedURL(session.projectURL);
    session.extraSources[entry.id] = *session.mediaURL;
    session.mediaTitle = entry.label;
    session.mediaDurationSeconds = entry.durationSeconds;
    session.mediaHasVideo = entry.hasVideo;
    session.waveformEnvelope.reset();
}

void layDownStoryline(ProjectSession& session, const std::string& sourceID) {
    TimelinePlanBridge::bootstrapSourceTimeline(session, sourceID);
    EditCoordinator::finalizeStructuralChange(session);
}

// What a worker learned of a file.
struct ProbedFile {
    fs::path file;                                  // the copy in "Media", or the file itself
    std::optional<engine::MediaProbeReport> probe;  // none for a still
};

ProbedFile probeFile(const fs::path& file, std::stop_token stop) {
    MediaPathGuard::requireRegularMediaFile(file, true);
    if (isStill(file)) return {file, std::nullopt};
    return {file, engine::MediaProbe::probe(file, std::move(stop))};
}

// The waveform of a source with sound and, for a very large picture, its playback proxy, both made in the
// background when the front end keeps them.
void scheduleCaches(const PipelineContext& context, ProjectSession& session, const MediaBinEntry& entry,
                    const ProbedFile& probed) {
    if (!probed.probe) return;  // a still has neither
    if (context.waveforms && entry.hasAudio)
        context.waveforms->scheduleEnsure(session, entry.id, probed.file);
    if (context.proxies && probed.probe->video) {
        const auto [width, height] = probed.probe->videoNaturalSize();
        context.proxies->scheduleIfNeeded(probed.file, entry.id, {width, height}, session);
    }
}

// The entry's length and tracks as the file has them.
void describeFile(MediaBinEntry& entry, const ProbedFile& probed) {
    if (!probed.probe) {
        entry.durationSeconds = kStillSeconds;
        entry.hasVideo = true;
        entry.hasAudio = false;
        return;
    }
    entry.durationSeconds = probed.probe->durationSeconds;
    entry.hasVideo = probed.probe->video.has_value();
    entry.hasAudio = probed.probe->audio.has_value();
}

// The bin entry `sourceID`, or none with the error shown; refused while the project is opened or saved.
MediaBinEntry* entryToChange(ProjectSession& session, const std::string& sourceID) {
    if (refuseWhileLocked(session)) return nullptr;
    MediaBinEntry* entry = findEntry(session, sourceID);
    if (!entry) session.setError("No media with the id " + sourceID + " in this project.");
    return entry;
}

// Probes `file` on a worker under the busy status `message`, then, back on the main loop, runs `finish`
// with the bin entry `sourceID` (still there) and what was learned, or fails with `failurePrefix` and the
// reason.
std::shared_ptr<PipelineRequest> probeForEntry(
    ProjectSession& session, MainLoop& loop, const fs::path& file, const std::string& sourceID,
    const std::string& message, MediaJobKind kind, const std::string& failurePrefix,
    std::function<void(MediaBinEntry&, const ProbedFile&)> finish) {
    session.setBusy(true, message, kind);
    auto probed = std::make_shared<ProbedFile>();
    return runInBackground(
        loop, [file, probed](std::stop_token stop) { *probed = probeFile(file, std::move(stop)); },
        [&session, sourceID, probed, failurePrefix, finish = std::move(finish)](std::exception_ptr failure) {
            MediaBinEntry* entry = findEntry(session, sourceID);
            if (failure || !entry) {
                session.setBusy(false);
                session.setError(failurePrefix +
                                 (failure ? describeFailure(failure) : "The media was removed."));
                return;
            }
            finish(*entry, *probed);
        });
}

}  // namespace

void ProjectPipeline::createUntitledProject(ProjectSession& session) {
    session.resetForNewProject("Untitled Project");
    session.statusMessage = "Untitled Project — import media to begin.";
    session.statusKind = SessionStatusKind::info;
    session.notifyChange();
}

bool ProjectPipeline::applyPrimaryMedia(MediaBinEntry entry, const engine::MediaProbeReport& probe,
                                        ProjectSession& session) {
    if (!(probe.durationSeconds > 0.0)) {
        session.setError(
            "Could not read " + entry.label +
            "'s duration. The file may still be finalizing (e.g. an in-progress screen recording) "
            "or its container may be corrupt — try again in a moment or re-export it.");
        return false;
    }
    entry.durationSeconds = probe.durationSeconds;
    entry.hasVideo = probe.video.has_value();
    entry.hasAudio = probe.audio.has_value();
    adoptPrimary(session, entry);
    session.frameDuration = engine::FrameDurationGuess::from(probe);
    layDownStoryline(session, entry.id);
    return true;
}

void ProjectPipeline::applyPrimaryImage(MediaBinEntry entry, ProjectSession& session) {
    entry.durationSeconds = kStillSeconds;
    entry.hasVideo = true;
    entry.hasAudio = false;
    adoptPrimary(session, entry);
    layDownStoryline(session, entry.id);
}

std::shared_ptr<PipelineRequest> ProjectPipeline::importMedia(ProjectSession& session, const fs::path& file,
                                                              PipelineContext context,
                                                              ImportMediaOptions options) {
    if (refuseWhileLocked(session)) return finishedRequest();
    if (!session.timeline) createUntitledProject(session);
    const std::string name = file.filename().string();
    session.setBusy(true, "Importing " + name + "…", MediaJobKind::importMedia);

    auto& reserved = reservedSourceIDs()[&session];
    const std::string id = session.nextSourceID(reserved);
    reserved.insert(id);
    // Copied into the bundle unless it is the primary already playing from there.
    std::optional<fs::path> bundle;
    std::map<fs::path, fs::path> taken;
    if (session.projectURL && (!session.mediaURL || MediaPathGuard::standardized(*session.mediaURL) !=
                                                        MediaPathGuard::standardized(file))) {
        bundle = session.projectURL;
        for (const auto& entry : session.mediaBin) {
            const fs::path kept = MediaPathGuard::standardized(sourceFile(session, entry));
            taken[kept] = kept;
        }
    }
    auto probed = std::make_shared<ProbedFile>();
    return runInBackground(
        context.mainLoop,
        [file, bundle, id, taken, probed](std::stop_token stop) {
            MediaPathGuard::requireRegularMediaFile(file, true);
            const fs::path used =
                bundle ? ProjectBundleIO::copyIntoMediaFolder(file, *bundle, id, taken) : file;
            *probed = probeFile(used, std::move(stop));
        },
        [&session, id, name, setAsPrimary = options.setAsPrimary, probed,
         context](std::exception_ptr failure) {
            reservedSourceIDs()[&session].erase(id);
            if (failure) {
                session.setBusy(false, std::string("Import failed."));
                session.setError("Import failed: " + describeFailure(failure));
                return;
            }
            const bool primary = setAsPrimary.value_or(session.mediaBin.empty());
            MediaBinEntry entry{.id = id,
                                .label = name,
                                .urlPath = MediaBinEntry::storedPath(probed->file, session.projectURL),
                                .kind = MediaBinKind::broll};
            describeFile(entry, *probed);
            std::string line;
            if (!probed->probe) {
                if (primary) {
                    applyPrimaryImage(entry, session);
                    line = "Primary image: " + name + " (" + binDuration(kStillSeconds) + ").";
                } else {
                    session.mediaBin.push_back(entry);
                    line = "Image: " + name + " (" + binDuration(kStillSeconds) + ").";
                }
            } else if (primary) {
                if (!applyPrimaryMedia(entry, *probed->probe, session)) return;
                line = "Primary media: " + name + " (" + binDuration(entry.durationSeconds) + ").";
            } else {
                entry.kind = entry.hasVideo ? MediaBinKind::broll : MediaBinKind::audio;
                session.mediaBin.push_back(entry);
                line = "Media bin: " + name + " (" + binDuration(entry.durationSeconds) + ").";
            }
            session.syncExtraSourcesFromMediaBin(session.projectURL);
            session.commitSourceTranscript();
            session.isDirty = true;
            appendMessage(session, ChatMessage::Role::system, line);
            session.setSuccess(line);
            scheduleCaches(context, session, entry, *probed);
        });
}

std::shared_ptr<PipelineRequest> ProjectPipeline::relinkMedia(ProjectSession& session,
                                                              const std::string& sourceID,
                                                              const fs::path& file, PipelineContext context) {
    if (!entryToChange(session, sourceID)) return finishedRequest();
    return probeForEntry(
        session, context.mainLoop, file, sourceID, "Relinking media…", MediaJobKind::relinkMedia,
        "Relink failed: ", [&session, context](MediaBinEntry& entry, const ProbedFile& probed) {
            const std::string name = probed.file.filename().string();
            entry.urlPath = MediaBinEntry::storedPath(probed.file, session.projectURL);
            entry.label = name;
            describeFile(entry, probed);
            session.syncExtraSourcesFromMediaBin(session.projectURL);
            if (entry.id == session.primarySourceID) {
                // The same material in a new place: the storyline and its cuts stay as they
                // are.
                adoptPrimary(session, entry);
                if (probed.probe) session.frameDuration = engine::FrameDurationGuess::from(*probed.probe);
                EditCoordinator::finalizeStructuralChange(session);
            }
            session.commitSourceTranscript();
            session.isDirty = true;
            session.setSuccess("Relinked " + name + ".");
            // The new file's waveform replaces the old one's when it comes.
            session.auxiliaryWaveforms.erase(entry.id);
            scheduleCaches(context, session, entry, probed);
        });
}

void ProjectPipeline::clearOrPromotePrimary(const std::string& removedID, ProjectSession& session) {
    (void)removedID;  // already out of the bin
    auto next = std::find_if(session.mediaBin.begin(), session.mediaBin.end(),
                             [](const MediaBinEntry& e) { return e.hasVideo; });
    if (next == session.mediaBin.end()) next = session.mediaBin.begin();
    if (next == session.mediaBin.end()) {
        session.mediaURL.reset();
        session.classification.reset();
        session.clearProposalReview();
        return;
    }
    for (auto& entry : session.mediaBin) {
        if (entry.kind == MediaBinKind::primary)
            entry.kind = entry.hasVideo ? MediaBinKind::broll : MediaBinKind::audio;
    }
    next->kind = MediaBinKind::primary;
    session.mediaURL = sourceFile(session, *next);
    session.primarySourceID = next->id;
    session.mediaTitle = next->label;
    session.mediaDurationSeconds = next->durationSeconds;
    session.mediaHasVideo = next->hasVideo;
    session.applySourceTranscript(next->id);
}

void ProjectPipeline::removeMedia(ProjectSession& session, const std::vector<std::string>& sourceIDs) {
    std::vector<std::string> ids;
    for (const auto& id : sourceIDs) {
        if (session.binEntry(id) && std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    }
    if (ids.empty()) return;
    try {
        EditCoordinator::perform(session, "Remove Media", [&] {
            for (const auto& id : ids) {
                std::erase_if(session.mediaBin, [&](const MediaBinEntry& e) { return e.id == id; });
                session.extraSources.erase(id);
                session.auxiliaryWaveforms.erase(id);
                session.removeSourceTranscript(id);
                if (session.timeline) {
                    for (auto& track : session.timeline->tracks) {
                        for (const auto& clip : track.clips) {
                            if (clip.sourceID != id) continue;
                            session.selectedClipIDs.erase(clip.id);
                            if (session.selectedClipID == clip.id) session.selectedClipID.reset();
                        }
                        std::erase_if(track.clips, [&](const TimelineClip& c) { return c.sourceID == id; });
                    }
                }
                if (id == session.primarySourceID) clearOrPromotePrimary(id, session);
            }
            session.commitSourceTranscript();
        });
    } catch (const std::exception& e) {
        session.setError(e.what());
        return;
    }
    session.setSuccess(ids.size() == 1 ? "Removed 1 media file."
                                       : fmt::format("Removed {} media files.", ids.size()));
}

std::shared_ptr<PipelineRequest> ProjectPipeline::setPrimaryMedia(ProjectSession& session,
                                                                  const std::string& sourceID,
                                                                  PipelineContext context) {
    const MediaBinEntry* entry = entryToChange(session, sourceID);
    if (!entry) return finishedRequest();
    const fs::path file = sourceFile(session, *entry);
    if (!entry->hasVideo && !isStill(file)) {
        session.setError(entry->label + " has no picture. Choose a video or an image as the primary media.");
        return finishedRequest();
    }
    return probeForEntry(session, context.mainLoop, file, sourceID, "Switching primary media…",
                         MediaJobKind::switchPrimary, "",
                         [&session, context](MediaBinEntry& current, const ProbedFile& probed) {
                             const MediaBinEntry chosen = current;
                             if (probed.probe) {
                                 if (!applyPrimaryMedia(chosen, *probed.probe, session)) return;
                             } else {
                                 applyPrimaryImage(chosen, session);
                             }
                             session.applySourceTranscript(chosen.id);
                             session.isDirty = true;
                             session.setSuccess(chosen.label + " is now primary.");
                             // Both the new primary and the one it replaced now keep their waveforms
                             // elsewhere.
                             if (context.waveforms) context.waveforms->scheduleAll(session);
                         });
}

bool ProjectPipeline::renameMedia(ProjectSession& session, const std::string& sourceID,
                                  const std::string& label) {
    MediaBinEntry* entry = findEntry(session, sourceID);
    const std::string trimmed(trimWhitespaceAndNewlines(label));
    if (!entry || trimmed.empty()) return false;
    entry->label = trimmed;
    if (sourceID == session.primarySourceID) session.mediaTitle = trimmed;
    session.isDirty = true;
    session.notifyChange();
    return true;
}

std::optional<TranscribeTarget> ProjectPipeline::resolveTranscribeTarget(
    const ProjectSession& session, const std::optional<std::string>& preferredSourceID) {
    const auto withAudio = [&](const std::optional<std::string>& id) -> const MediaBinEntry* {
        if (!id) return nullptr;
        const MediaBinEntry* entry = session.binEntry(*id);
        return entry && entry->hasAudio ? entry : nullptr;
    };
    std::optional<std::string> selectedSource;
    if (session.selectedClipID && session.timeline) {
        if (const TimelineClip* clip = session.timeline->findClip(*session.selectedClipID))
            selectedSource = clip->sourceID;
    }
    const std::pair<std::optional<std::string>, const char*> candidates[] = {
        {preferredSourceID, "preferred"},
        {session.transcriptSourceID, "transcriptPane"},
        {selectedSource, "selectedClip"},
        {session.primarySourceID, "primary"},
    };
    for (const auto& [id, reason] : candidates) {
        if (const MediaBinEntry* entry = withAudio(id)) return TranscribeTarget{*entry, reason};
    }
    for (const auto& entry : session.mediaBin) {
        if (entry.hasAudio) return TranscribeTarget{entry, "firstAudio"};
    }
    return std::nullopt;
}

namespace {

// A transcription in flight: what the worker hands back, stage by stage.
struct Transcription {
    std::string sourceID;
    std::string label;
    fs::path file;
    std::string locale;
    std::string jobID;
    bool transcribed = false;  // the transcript reached the session; later failures are segmentation's
};

std::optional<std::string> chooseLocale(const PipelineContext& context, const TranscribeMediaOptions& options,
                                        const std::string& label) {
    if (options.locale) return options.locale;
    if (!options.promptIfNeeded) {
        const auto last = context.preferences ? context.preferences->string("morvane.transcriptionLastLocale")
                                              : std::nullopt;
        return last && !last->empty() ? *last : std::string(TranscriptionLocale::fallback);
    }
    if (context.preferences) {
        if (auto locale = TranscriptionLocale::resolvedLocaleWithoutPrompt(*context.preferences))
            return locale;
    }
    if (!context.delegate) return std::nullopt;
    return context.delegate->chooseTranscriptionLocale(
        label, TranscriptionLocale::availableLocales(context.transcription->supportedLocales()));
}

}  // namespace

std::shared_ptr<PipelineRequest> ProjectPipeline::transcribeMedia(ProjectSession& session,
                                                                  PipelineContext context,
                                                                  TranscribeMediaOptions options) {
    MainLoop& loop = context.mainLoop;
    const auto target = resolveTranscribeTarget(session, options.sourceID);
    if (!target) {
        session.setError(session.mediaBin.empty()
                             ? "Import media first."
                             : "No clip with an audio track to transcribe. Select a clip that has speech, or "
                               "right-click it → Transcribe.");
        return finishedRequest();
    }
    if (!context.transcription) {
        session.setError("Speech recognition isn't available: no recognizer is set up.");
        return finishedRequest();
    }
    session.errorMessage.reset();
    const std::string& label = target->entry.label;
    const auto locale = chooseLocale(context, options, label);
    if (!locale) {
        session.statusMessage =
            "Skipped transcription for " + label + ". Click Transcribe when you’re ready.";
        session.statusKind = SessionStatusKind::info;
        session.notifyChange();
        return finishedRequest();
    }

    auto state = std::make_shared<Transcription>(Transcription{
        .sourceID = target->entry.id,
        .label = label,
        .file = sourceFile(session, target->entry),
        .locale = *locale,
        .jobID =
            session.beginJob(MediaJobKind::transcribe, "Transcribing " + label + "…", target->entry.id, true),
    });
    intelligence::TranscriptionProvider* provider = context.transcription;
    ProjectSession* owner = &session;
    return runInBackground(
        loop,
        [state, provider, owner, &loop](std::stop_token stop) {
            // One bar for the three steps: recognition takes most of the time, the two passes over the
            // recording's sound the rest.
            const auto stage = [&loop, owner, id = state->jobID](double from, double to) {
                return [&loop, owner, id, from, to](double share) {
                    loop.post([owner, id, at = from + (to - from) * share] { owner->updateJob(id, at); });
                };
            };
            auto transcript =
                provider->transcribe(state->file, {.locale = state->locale}, stage(0.0, 0.8), stop);
            loop.post([owner, state, transcript] {
                ProjectSession& s = *owner;
                s.commitSourceTranscript();
                s.transcriptSourceID = state->sourceID;
                s.transcript = transcript;
                // The old source's segments and cut went into its record; they don't belong to this one.
                s.segments.reset();
                s.cutItems.clear();
                s.mediaEvidence.reset();
                s.removedWordIDs.clear();
                s.classification.reset();
                s.clearProposalReview();
                state->transcribed = true;
                s.updateJob(state->jobID, std::nullopt, std::string("Segmenting (silence snap)…"));
            });
            const engine::SilenceDetectionOptions silences{.thresholdDB = -40.0f,
                                                           .windowSeconds = 0.02,
                                                           .minSilenceSeconds = 0.15,
                                                           .paddingSeconds = 0.05};
            auto segments = intelligence::Segmenter::segment(transcript, state->file, {}, silences,
                                                             stage(0.8, 0.9), stop);
            loop.post([owner, segments] {
                owner->segments = segments;
                owner->seedCutItemsFromSegments("transcript");
                owner->commitSourceTranscript();
            });
            auto evidence = intelligence::MediaEvidenceBuilder::build(
                state->file, transcript, segments, intelligence::MediaEvidenceBuilder::defaultMaxFrames,
                stage(0.9, 1.0), stop);
            loop.post([owner, evidence = std::move(evidence)] {
                owner->mediaEvidence = evidence;
                owner->commitSourceTranscript();
            });
        },
        [state, owner](std::exception_ptr failure) {
            ProjectSession& s = *owner;
            s.endJob(state->jobID);
            if (state->transcribed) s.isDirty = true;
            if (!failure) {
                const auto count = s.segments ? s.segments->segments.size() : 0;
                s.setSuccess(
                    fmt::format("Transcription complete for {} — {} segments. Select words in the "
                                "transcript, press Delete to cut, then Accept.",
                                state->label, count));
                return;
            }
            s.setBusy(false, std::string("Transcription finished."));
            if (isCancellation(failure)) {
                s.statusMessage = "Transcription cancelled.";
                s.notifyChange();
                return;
            }
            const std::string description = describeFailure(failure);
            try {
                std::rethrow_exception(failure);
            } catch (const intelligence::IntelligenceError& e) {
                if (e.isSoftTranscriptionFailure() && !description.empty()) {
                    appendMessage(s, ChatMessage::Role::assistant, description);
                    s.setSuccess(description);
                    return;
                }
            } catch (...) {
            }
            appendMessage(s, ChatMessage::Role::assistant, "Transcription failed: " + description);
            s.setError(description);
        });
}

}  // namespace morvane::app
