#include "morvane/app/pipeline/shorts_project_builder.hpp"

#include <algorithm>
#include <set>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app::ShortsProjectBuilder {
namespace {

constexpr std::size_t kNameMaxCharacters = 64;
constexpr std::size_t kNameCutCharacters = 61;

template <class T>
bool overlaps(const T& item, RationalTime start, RationalTime end) {
    return item.end > start && item.start < end;
}

}  // namespace

ParentSnapshot ParentSnapshot::capture(const ProjectSession& parent) {
    return {.mediaBin = parent.mediaBin,
            .primarySourceID = parent.primarySourceID,
            .mediaURL = parent.mediaURL,
            .mediaTitle = parent.mediaTitle,
            .mediaDurationSeconds = parent.mediaDurationSeconds,
            .mediaHasVideo = parent.mediaHasVideo,
            .frameDuration = parent.frameDuration,
            .waveformEnvelope = parent.waveformEnvelope,
            .projectURL = parent.projectURL,
            .transcript = parent.transcript,
            .segments = parent.segments};
}

std::string sanitizedProjectName(std::string_view title) {
    std::string name(trimWhitespaceAndNewlines(title));
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '/' || c == '\\' || c == ':'; }, '-');
    if (intelligence::characterCount(name) > kNameMaxCharacters) {
        name =
            std::string(trimWhitespaceAndNewlines(intelligence::firstCharacters(name, kNameCutCharacters)));
    }
    return name.empty() ? "Short" : name;
}

std::optional<intelligence::TranscriptDocument> filteredTranscript(
    const intelligence::TranscriptDocument& transcript, RationalTime start, RationalTime end) {
    intelligence::TranscriptDocument filtered{
        .sourceURL = transcript.sourceURL,
        .locale = transcript.locale,
        .durationSeconds = std::max(end.subtracting(start).seconds(), 0.0)};
    std::set<int> ids;
    for (const auto& word : transcript.words) {
        if (!overlaps(word, start, end)) continue;
        filtered.words.push_back(word);
        ids.insert(word.id);
        if (!filtered.fullText.empty()) filtered.fullText += ' ';
        filtered.fullText += word.text;
    }
    if (filtered.words.empty()) return std::nullopt;
    for (const auto& hit : transcript.disfluencyHits) {
        if (ids.contains(hit.wordID)) filtered.disfluencyHits.push_back(hit);
    }
    return filtered;
}

std::optional<intelligence::SegmentDocument> filteredSegments(const intelligence::SegmentDocument& segments,
                                                              RationalTime start, RationalTime end) {
    intelligence::SegmentDocument filtered{.sourceTranscript = segments.sourceTranscript};
    for (const auto& segment : segments.segments) {
        if (overlaps(segment, start, end)) filtered.segments.push_back(segment);
    }
    if (filtered.segments.empty()) return std::nullopt;
    filtered.segmentCount = static_cast<int>(filtered.segments.size());
    return filtered;
}

std::shared_ptr<PipelineRequest> populateShortProject(const ProjectSession& parent,
                                                      const intelligence::ShortsCandidate& candidate,
                                                      ProjectSession& into, PipelineContext context) {
    // Taken first: `into` may be the parent itself.
    ParentSnapshot snapshot = ParentSnapshot::capture(parent);
    if (!snapshot.mediaURL || !(candidate.sourceEnd > candidate.sourceStart)) {
        throw ShortProjectError("Could not create timeline.");
    }

    into.resetForNewProject(sanitizedProjectName(candidate.title));
    // The short has no bundle of its own yet: its media paths are made absolute against the parent's
    // bundle, so that neither a relative path nor the parent's bundle ties the two projects together.
    for (auto& entry : snapshot.mediaBin)
        entry.urlPath = entry.resolvedURL(snapshot.projectURL).string();
    into.mediaBin = std::move(snapshot.mediaBin);
    into.primarySourceID = snapshot.primarySourceID;
    into.mediaURL = snapshot.mediaURL;
    into.mediaTitle = snapshot.mediaTitle;
    into.mediaDurationSeconds = snapshot.mediaDurationSeconds;
    into.mediaHasVideo = snapshot.mediaHasVideo;
    into.frameDuration = snapshot.frameDuration;
    into.waveformEnvelope = std::move(snapshot.waveformEnvelope);
    into.syncExtraSourcesFromMediaBin();

    if (snapshot.transcript) {
        into.transcript =
            filteredTranscript(*snapshot.transcript, candidate.sourceStart, candidate.sourceEnd);
    }
    if (snapshot.segments) {
        into.segments = filteredSegments(*snapshot.segments, candidate.sourceStart, candidate.sourceEnd);
    }
    // Selecting the clip below then keeps this transcript as the source's own.
    into.transcriptSourceID = into.primarySourceID;

    TimelineDocument timeline = TimelineDocument::makeDefault(into.frameDuration);
    timeline.projectFormat =
        engine::ProjectFormat::fromPreset(engine::ProjectFormatPreset::shorts, into.frameDuration);
    const TimelineClip clip{.id = makeUUID(),
                            .sourceID = into.primarySourceID,
                            .label = into.mediaURL->filename().string(),
                            .sourceIn = candidate.sourceStart,
                            .sourceOut = candidate.sourceEnd,
                            .timelineStart = RationalTime::zero,
                            .originSegmentIDs = candidate.segmentIDs,
                            .kind = std::string(TimelineClipKinds::media),
                            .audioGain = 1.0};
    timeline.track(TimelineTrackIDs::source)->clips.push_back(clip);
    into.timeline = std::move(timeline);

    into.selectClip(clip.id);
    TimelineEditor::healMisplacedAudioOnOverlay(into);
    into.editPlan = TimelinePlanBridge::rebuildEditPlan(into);
    into.rebuildPlaybackMap();
    into.notifyChange();

    // The crop follows the speaker before the project is announced; a clip that can't be reframed keeps
    // its whole picture and the error banner says why.
    const std::string announcement = "Short project \"" + candidate.title + "\" — " +
                                     ProjectPipeline::formatTimecode(candidate.durationSeconds()) + ".";
    ProjectSession* session = &into;
    return ProjectPipeline::autoReframeSelectedClip(into, context, {.completion = [session, announcement] {
                                                        appendMessage(*session, ChatMessage::Role::assistant,
                                                                      announcement);
                                                        session->notifyChange();
                                                    }});
}

}  // namespace morvane::app::ShortsProjectBuilder
