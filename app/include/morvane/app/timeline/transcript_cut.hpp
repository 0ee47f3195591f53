#pragma once

/// What makes Morvane a text-based editor: struck words and dropped segments become source ranges, those
/// ranges become clips on the "program" track (the rough cut), and times map between the source clock and
/// the program (composition) clock.
///
///     TranscriptCutMaterializer::setWordsRemoved(session, {41, 42}, true);   // strike "um, so"
///     // session.timeline's "program" track now plays the words around them as separate clips
///     auto at = PlaybackMapper::sourceToComposition(12.5, session.playbackRanges);

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::app {

class ProjectSession;

namespace TranscriptCutMaterializer {

/// A pause this long (seconds) breaks a run of kept words into two clips.
inline constexpr double maxGapSeconds = 0.75;
/// A segment clip runs on this far past its end, so a word's decay isn't clipped.
inline constexpr double segmentTailPadSeconds = 0.15;

/// One run of kept words, exactly word start to word end.
struct KeptRange {
    RationalTime start;
    RationalTime end;
    std::vector<int> wordIDs;
    std::string label;  ///< the words; 29 characters or more become 25 and "…"
    std::vector<int> segmentIDs;
    friend bool operator==(const KeptRange&, const KeptRange&) = default;
};

/// The runs of words that survive `removed`, split at struck words and at pauses of `maxGap` or more.
[[nodiscard]] std::vector<KeptRange> keptRanges(const std::vector<intelligence::TranscriptWord>& words,
                                                const std::set<int>& removed,
                                                const intelligence::SegmentDocument* segments,
                                                double maxGap = maxGapSeconds);

/// The rough cut of one source: a clip per kept run of words, or without words a clip per accepted
/// segment (with a tail pad). Each new clip takes over the picture treatment of the donor clip that
/// played the same material.
[[nodiscard]] std::vector<TimelineClip> rematerializedClips(const std::string& sourceID,
                                                            const ProjectSession& session,
                                                            const std::vector<TimelineClip>& donors);

/// The donor with the most material in common with `clip` (same source, not a text clip, more than
/// 0.02 s), preferring donors with a picture treatment.
[[nodiscard]] const TimelineClip* bestDonor(const TimelineClip& clip,
                                            const std::vector<TimelineClip>& donors);

/// Lays the rough cut down again on the "program" track from the struck words (or the cut list).
void rebuildProgram(ProjectSession& session);

/// Replaces the clips of `sourceID` among `clips` by `replacement`, at the place of the first of them.
[[nodiscard]] std::vector<TimelineClip> spliceReplacement(const std::vector<TimelineClip>& replacement,
                                                          const std::string& sourceID,
                                                          const std::vector<TimelineClip>& clips);
/// Lays `clips` end to end from zero, in list order.
void packProgramStarts(std::vector<TimelineClip>& clips);

/// Strikes (`removed`) or restores words, then re-lays the rough cut.
void setWordsRemoved(ProjectSession& session, const std::set<int>& wordIDs, bool removed);
/// Keeps or drops a whole segment, then re-lays the rough cut.
void setSegmentAccepted(ProjectSession& session, bool accepted, int segmentID);
/// When nothing is struck yet but the storyline was cut on the timeline, strikes the words the cut left out,
/// so the cut can be continued in text.
void seedRemovedWordsFromCurrentCutIfNeeded(ProjectSession& session);
/// Each cut item is kept when its segment still has a word that isn't struck.
void syncCutItemsFromWords(ProjectSession& session);

/// The words that `clips` play: their word origins, or the words inside their source ranges.
[[nodiscard]] std::set<int> keptWordIDs(const std::vector<intelligence::TranscriptWord>& words,
                                        const std::vector<TimelineClip>& clips);
[[nodiscard]] bool wordIsInKeepSet(const intelligence::TranscriptWord& word,
                                   const std::vector<TimelineClip>& clips);
/// What the transcript shows struck: the struck words, or after an Accept the words the storyline left out.
[[nodiscard]] std::set<int> displayRemovedWordIDs(const ProjectSession& session);
/// The storyline clips of the active transcript's source.
[[nodiscard]] std::vector<TimelineClip> storylineClips(const ProjectSession& session);
/// Whether the storyline plays any of `segment`.
[[nodiscard]] bool segmentIsInStorylineCut(const intelligence::TranscriptSegment& segment,
                                           const ProjectSession& session);

}  // namespace TranscriptCutMaterializer

/// Maps between the source clock and the program (composition) clock. Pure functions.
namespace PlaybackMapper {

[[nodiscard]] std::vector<PlaybackRange> ranges(const std::vector<TimelineClip>& clips);
[[nodiscard]] std::vector<PlaybackRange> ranges(const std::vector<CutItem>& cutItems);
/// The program time at which source time `seconds` plays, or nothing when it was cut. No ranges: as is.
[[nodiscard]] std::optional<double> sourceToComposition(double seconds,
                                                        const std::vector<PlaybackRange>& ranges);
/// The source time playing at program time `seconds`; in a gap the first range's start, past the end the
/// last range's end.
[[nodiscard]] double compositionToSource(double seconds, const std::vector<PlaybackRange>& ranges);
/// The same, but nothing in a gap, before the start or past the end.
[[nodiscard]] std::optional<double> compositionToSourceOptional(double seconds,
                                                                const std::vector<PlaybackRange>& ranges);
/// For a cut-out source time, the program time of the nearest kept edge.
[[nodiscard]] std::optional<double> nearestComposition(double sourceSeconds,
                                                       const std::vector<PlaybackRange>& ranges);
[[nodiscard]] bool hasProgramCoverage(double compositionSeconds, const std::vector<PlaybackRange>& ranges);

}  // namespace PlaybackMapper

/// A span of speech on the timeline's speech lane, in program seconds.
struct SpeechLaneBlock {
    double start = 0.0;
    double end = 0.0;
    friend bool operator==(const SpeechLaneBlock&, const SpeechLaneBlock&) = default;
};

namespace SpeechSpanMapper {

/// The program spans that play speech, after rebuilding the playback map.
[[nodiscard]] std::vector<engine::TimeSpan> programSpeechSpans(ProjectSession& session);
/// Sorted, with overlapping and touching spans joined.
[[nodiscard]] std::vector<engine::TimeSpan> merge(std::vector<engine::TimeSpan> spans);
/// The segments whose playback ranges fall in `block`.
[[nodiscard]] std::vector<int> segments(const SpeechLaneBlock& block, const ProjectSession& session);
[[nodiscard]] std::vector<CutItem> cutItems(const SpeechLaneBlock& block, const ProjectSession& session);
/// The speech lane: the merged program speech spans.
[[nodiscard]] std::vector<SpeechLaneBlock> laneBlocks(ProjectSession& session);
/// Without a playback map: the transcript segments in source time, merged.
[[nodiscard]] std::vector<SpeechLaneBlock> fallbackBlocks(const ProjectSession& session);

}  // namespace SpeechSpanMapper

}  // namespace morvane::app
