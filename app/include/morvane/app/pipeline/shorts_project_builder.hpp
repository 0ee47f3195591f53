#pragma once

/// A short as a project of its own: a new session holding only the chosen passage of the parent's
/// recording, its part of the transcript, and one storyline clip in the vertical shorts format.
///
///     auto candidates = ShortsCandidateScorer::propose(*parent.segments, &*parent.transcript, std::nullopt,
///                                                      5, ShortsCandidateScorer::sheetTargetDuration);
///     ProjectSession shortSession;
///     auto request = ShortsProjectBuilder::populateShortProject(parent, candidates.front(), shortSession,
///                                                               {.mainLoop = loop});
///     loop.runUntil([&] { return request->isFinished(); });   // reframed, and announced in the chat
///     shortSession.projectName;        // "Why does my voice sound thin on every call? Most laptops…"

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/app/media/media_bin_entry.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

namespace morvane::app {

/// A short that can't be made; `what()` is the text the user reads.
class ShortProjectError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

namespace ShortsProjectBuilder {

/// What a short project takes over from the session it was cut from.
struct ParentSnapshot {
    std::vector<MediaBinEntry> mediaBin;
    std::string primarySourceID;
    std::optional<std::filesystem::path> mediaURL;
    std::string mediaTitle;
    std::optional<double> mediaDurationSeconds;
    bool mediaHasVideo = true;
    std::string frameDuration;
    std::optional<engine::WaveformEnvelope> waveformEnvelope;
    std::optional<std::filesystem::path> projectURL;
    std::optional<intelligence::TranscriptDocument> transcript;
    std::optional<intelligence::SegmentDocument> segments;

    [[nodiscard]] static ParentSnapshot capture(const ProjectSession& parent);
};

/// A project name from a title: trimmed, with "/", "\" and ":" made "-", cut to 61 characters beyond 64,
/// "Short" when nothing is left.
[[nodiscard]] std::string sanitizedProjectName(std::string_view title);

/// The words that overlap `start`...`end` (ids kept) with their fillers and text, and the window's length;
/// nothing when no word overlaps.
[[nodiscard]] std::optional<intelligence::TranscriptDocument> filteredTranscript(
    const intelligence::TranscriptDocument& transcript, RationalTime start, RationalTime end);

/// The segments that overlap `start`...`end` (ids kept); nothing when none does.
[[nodiscard]] std::optional<intelligence::SegmentDocument> filteredSegments(
    const intelligence::SegmentDocument& segments, RationalTime start, RationalTime end);

/// Makes `into` a new project of `candidate`'s passage of `parent`: named after its title, the parent's
/// media, the overlapping part of its transcript, the shorts format at the parent's frame rate and one
/// selected storyline clip of the passage at program time zero. Media paths are made absolute, so that the
/// short, which has no bundle yet, finds the parent's files. Then the clip is reframed to follow its
/// subject (`ProjectPipeline::autoReframeSelectedClip`) on a worker, and once that is over the chat
/// announces the short. Throws `ShortProjectError` ("Could not create timeline.") with `into` untouched
/// when the parent has no media or the passage has no length.
std::shared_ptr<PipelineRequest> populateShortProject(const ProjectSession& parent,
                                                      const intelligence::ShortsCandidate& candidate,
                                                      ProjectSession& into, PipelineContext context);

}  // namespace ShortsProjectBuilder

}  // namespace morvane::app
