#pragma once

/// The timeline's editing operations: split, trim, ripple, roll, slip, slide, join, move, insert, delete,
/// speed, gain and connect. Each changes the session's timeline in place and returns whether anything
/// changed; a refused edit returns false and changes nothing. Each is one undoable step when run inside
/// the session's mutation wrapper:
///
///     EditCoordinator::perform(session, "Split Clip", [&] {
///         TimelineEditor::splitClip(session, clipID, 12.5);          // program seconds
///     });
///     TimelineEditor::rippleTrimClip(session, clipID, TrimEdge::trailing, 20.0);
///     if (auto failure = TimelineEditor::diagnoseJoinSelectedClips(session))
///         session.setError(failure->message());
///
/// The "source" track is the magnetic storyline: after any edit on it the clips sit end to end again
/// (a trim there always ripples), and connected clips follow their hosts. Overlay, audio and text clips
/// keep gaps. Times are program seconds unless named otherwise; on a storyline that still shows source
/// time (one untouched clip beside a rough cut) a position is read on that axis. The diagrams show the
/// tracks before and after, `|` marking the time the operation is given.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/text/text_clip_style.hpp"

namespace morvane::app {

class ProjectSession;
class UserInterfaceDelegate;

/// How a drag on a clip's edge trims.
enum class TrimDragMode { normal, ripple, roll };

/// Which end of a clip a trim moves.
enum class TrimEdge { leading, trailing };

/// Where a clip dropped into the middle of a storyline clip goes.
enum class StorylineInsertPlacement { splitAndEmbed, beforeHost, afterHost };

/// Dropping several files: side by side in time (`sequential`) or stacked at one time (`parallel`).
enum class MediaDropMode { sequential, parallel };

/// What the pointer is over on the timeline: a clip, and the trim handle when it is on one.
struct TimelineClipHit {
    std::string clipID;
    std::string trackID;
    std::optional<TrimEdge> edge;
    friend bool operator==(const TimelineClipHit&, const TimelineClipHit&) = default;
};

/// Asks the user, through `delegate`, where a clip goes that lands inside `hostLabel`: "Insert into the
/// middle of “…”?" with "Split & Insert", "Place Before", "Place After" and "Cancel". Nothing on Cancel,
/// and the gesture is dropped.
[[nodiscard]] std::optional<StorylineInsertPlacement> askStorylineInsertPlacement(
    UserInterfaceDelegate& delegate, const std::string& hostLabel, const std::string& informativeText);

/// How a clip is laid into the storyline or the rough cut when it lands inside another clip.
struct InsertPlacementOptions {
    std::optional<StorylineInsertPlacement> placement;  ///< none: ask `delegate`, or split when there is none
    UserInterfaceDelegate* delegate = nullptr;
};

/// Where a file that isn't in the media bin yet goes on the overlay track.
struct OverlayMediaOptions {
    std::optional<std::string> preferredSourceID;  ///< the source id to use when the file is new
    std::optional<double> durationHint;            ///< seconds, when the bin doesn't know the length
};

namespace TimelineEditor {

/// The shortest clip a trim, split, slip or ripple may leave, in seconds.
inline constexpr double minimumClipSeconds = 0.25;
/// The source length assumed for an image or a text clip: they stretch up to an hour.
inline constexpr double stillSourceSeconds = 3600.0;
/// How close two clips must be for a roll or a slide to take them as neighbours.
inline constexpr double adjacencySeconds = 0.03;
/// How close clips (or source ranges) must be to count as touching, in join.
inline constexpr double touchingSeconds = 0.02;
/// Differences below this count as no change, in slip, slide, move and speed.
inline constexpr double unchangedSeconds = 0.0001;
/// The margin at the end of the program axis within which an insert appends.
inline constexpr double insertMarginSeconds = 0.001;

/// Why "Join" can't run on the selection; `message()` is what the user reads.
struct JoinSelectedClipsFailure {
    enum class Case { timelineGap, differentMedia, needSelection, wrongTrack };
    Case kind = Case::needSelection;
    double gapStart = 0.0;  ///< timelineGap: program seconds
    double gapEnd = 0.0;
    std::string left;  ///< differentMedia: the two clips' labels
    std::string right;

    [[nodiscard]] static JoinSelectedClipsFailure timelineGap(double start, double end);
    [[nodiscard]] static JoinSelectedClipsFailure differentMedia(std::string left, std::string right);
    [[nodiscard]] std::string message() const;
    friend bool operator==(const JoinSelectedClipsFailure&, const JoinSelectedClipsFailure&) = default;
};

// Looking up.

/// The clip with `clipID` on any track.
[[nodiscard]] const TimelineClip* clip(const ProjectSession& session, std::string_view clipID);
/// The id of the track holding `clipID`.
[[nodiscard]] std::optional<std::string> trackID(const ProjectSession& session, std::string_view clipID);
/// A clip that shows a picture: not text, not on the audio track, and an image or a source with video.
[[nodiscard]] bool isVideoClip(const ProjectSession& session, std::string_view clipID);
[[nodiscard]] bool isTextClip(const ProjectSession& session, std::string_view clipID);
/// False for text and image clips, which have no speed.
[[nodiscard]] bool clipSupportsPlaybackRate(const TimelineClip& clip, const ProjectSession& session);
/// Whether clips of `kind` are placed by program time: program, overlay and audio are; text isn't; the
/// storyline is unless it still shows source time.
[[nodiscard]] bool usesProgramAxis(TimelineTrackKind kind, const ProjectSession& session);
/// How far a clip's source runs: an hour (timescale 600) for an image or text clip or an image source,
/// else the media bin's duration; nothing when the source is unknown.
[[nodiscard]] std::optional<RationalTime> maxSourceEnd(const TimelineClip& clip,
                                                       const ProjectSession& session);

// Split.

/// Cuts a clip in two at `atSeconds`, at least 0.25 s inside it; the right half gets a new id. A packed
/// clip divides its ranges, each half keeping its own (a cut on a range boundary keeps whole ranges).
///
///     before:  [ A ─────|───── ]            after:  [ A ────][ A' ───── ]
bool splitClip(ProjectSession& session, std::string_view clipID, double atSeconds);
/// `splitClip` on each of `clipIDs`; returns how many were split.
///
///     [ A ──|── ][ B ──|── ]   A, B at |   ->   [ A ─][ A' ─][ B ─][ B' ─]   (when they overlap the time)
int splitClips(ProjectSession& session, const std::vector<std::string>& clipIDs, double atSeconds);
/// Splits every clip under the playhead, on every track; returns how many were split.
///
///     overlay:      [ B ──|── ]               ->      [ B ─][ B' ─]
///     storyline: [ A ─────|──────── ]          ->   [ A ─────][ A' ──────── ]
int splitAllClipsAtPlayhead(ProjectSession& session, double atSeconds);

// Trim.

/// Moves one edge to `toSeconds`, stopping at 0.25 s of length and at the ends of the source (an image or
/// text clip stretches to an hour). Off the storyline this leaves a gap; on the storyline and the rough
/// cut the clips close up (it ripples). A packed clip only shortens, by at least 0.25 s: it is split at
/// `toSeconds` and keeps the half with its id.
///
///     overlay:   [ B ────|───── ]     B trailing to |   ->   [ B ──── ]
///     storyline: [ A ──|── ][ C ── ]  A trailing to |   ->   [ A ─ ][ C ── ]
bool trimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds);
/// A trim after which the later clips of the track move by the change in length, so no gap opens; the
/// trimmed clip keeps its start.
///
///     overlay: [ B ───|────── ] [ D ── ]   B trailing to |   ->   [ B ─── ] [ D ── ]
bool rippleTrimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds);
/// Moves the cut between a clip and its neighbour (within 0.03 s): one gains what the other gives up, the
/// total length stays. Each keeps 0.25 s and stays inside its source.
///
///     [ A ───|─── ][ C ───── ]   A trailing to |   ->   [ A ─── ][ C ───────── ]
bool rollTrimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds);
/// `trimClip`, `rippleTrimClip` or `rollTrimClip`, as the drag's mode says.
bool trimClip(ProjectSession& session, std::string_view clipID, TrimEdge edge, double toSeconds,
              TrimDragMode mode);

// Slip and slide.

/// Plays other material in the same place: the source window (every range of a packed clip) moves to
/// start at `sourceInSeconds`, kept inside the source; position and length stay.
///
///     program:  [ A  src 4–8 ]     slip to 6     ->   [ A  src 6–10 ]   (same place, same length)
bool slipClipToSourceIn(ProjectSession& session, std::string_view clipID, double sourceInSeconds);
/// Moves a clip between its two neighbours, which give and take the difference like a roll on both sides;
/// the clip's own material stays.
///
///     [ A ──── ][ B ── ][ C ────── ]   B to |   ->   [ A ──────── ][ B ── ][ C ── ]
bool slideClipToProgramStart(ProjectSession& session, std::string_view clipID, double programStartSeconds);

// Move and insert.

/// Moves a clip along its own track. On the storyline and the rough cut it is taken out and laid back in
/// at the clip boundary nearest `toProgramSeconds` (before or after a clip it lands inside, by which half);
/// elsewhere it is placed at that time, reconnected to the storyline clip there if it was connected.
///
///     storyline: [ A ][ B ][ C ]   A to |(after C)   ->   [ B ][ C ][ A ]
///     overlay:   [ X ]        |                     ->            [ X ]
bool moveClip(ProjectSession& session, std::string_view clipID, double toProgramSeconds);
/// Moves a clip to another lane at `atProgramSeconds`, when `canMoveClip` allows it. Into the storyline or
/// the rough cut it is inserted (inside a clip: split, before or after it, as `options` or the user says);
/// on the overlay, audio and text tracks it is placed and connected to the storyline clip there.
///
///     overlay:   [ X ]                               -
///     storyline: [ A ──|── ]     X to storyline  ->  [ A ─][ X ][ A'─ ]
bool moveClip(ProjectSession& session, std::string_view clipID, TimelineLaneKind toLane,
              double atProgramSeconds, const InsertPlacementOptions& options = {});
/// Whether a clip may go from one lane to another: text clips stay on the text lane; pictures go to the
/// storyline, the overlay and a rough cut under review; sound to the audio lane and the storyline.
[[nodiscard]] bool canMoveClip(const ProjectSession& session, std::string_view clipID, TimelineLaneKind from,
                               TimelineLaneKind to);
/// Puts the whole of a bin source on a lane at `atProgramSeconds`: inserted into the storyline (or a rough
/// cut under review), placed and connected on the overlay or audio track. On those two, `sequential`
/// lays it after a clip it would land on, `parallel` stacks it there.
///
///     storyline: [ A ]|[ B ]     insert src2   ->   [ A ][ src2 ][ B ]
bool insertBinMedia(ProjectSession& session, const std::string& sourceID, double atProgramSeconds,
                    TimelineLaneKind lane, MediaDropMode mode, const InsertPlacementOptions& options = {});
/// Puts a file on the overlay track at `atProgramSeconds`, connected to the storyline: the bin's source
/// for that file, or a new source id. Returns the new clip's id; nothing without a known length.
///
///     overlay:      -       ->      [ b-roll ]
///     storyline: [ A ──|── ]     [ A ─────── ]
std::optional<std::string> addOverlayMedia(ProjectSession& session, const std::filesystem::path& file,
                                           double atProgramSeconds, const OverlayMediaOptions& options = {});
/// Puts a title on the text track, connected to the storyline. Returns its id; nothing for a length that
/// isn't above zero.
///
///     text:         -       ->      [ "Hello" ]
std::optional<std::string> addTextClip(ProjectSession& session, const std::string& text,
                                       double atProgramSeconds, double durationSeconds);
/// `addTextClip` with the annotation look: a lower third on a dark box.
///
///     text:         -       ->      [ "Note" ▆ ]
std::optional<std::string> addAnnotation(ProjectSession& session, const std::string& text,
                                         double atProgramSeconds, double durationSeconds);
/// The look of an annotation.
[[nodiscard]] engine::TextClipStyle annotationStyle();
/// Changes a text clip's words (and its label) and look.
///
///     text: [ "Helo" ]   ->   [ "Hello" ]
bool updateTextClip(ProjectSession& session, std::string_view clipID, const std::string& content,
                    const engine::TextClipStyle& style);

// Delete.

/// Removes a clip. The storyline and the rough cut close the gap; other tracks keep it. Clips connected
/// to a removed storyline clip stay where they are.
///
///     storyline: [ A ][ B ][ C ]   delete B   ->   [ A ][ C ]
///     overlay:   [ X ] [ Y ] [ Z ]  delete Y  ->   [ X ]       [ Z ]
bool deleteClip(ProjectSession& session, std::string_view clipID);
/// Deletes the selected clips and clears the selection; returns how many went.
///
///     storyline: [ A ][*B*][ C ][*D*]   ->   [ A ][ C ]        (*selected*)
int deleteSelectedClips(ProjectSession& session);

// Join.

/// Why the selection can't be joined, or nothing when it can.
[[nodiscard]] std::optional<JoinSelectedClipsFailure> diagnoseJoinSelectedClips(
    const ProjectSession& session);
/// Replaces the selected, touching clips of one recording with one packed clip, which keeps the first
/// clip's id, look and speed; pieces of the source that touch become one range again, and clips connected
/// to any of them stay where they are, on the joined clip.
///
///     [ A src 0–4 ][ A' src 4–9 ][ B ]   join A, A'   ->   [ A src 0–9 ][ B ]
bool joinSelectedClips(ProjectSession& session);

// Speed, sound and the rest.

/// Plays clips at `rate` (1.0 stores no rate). Text and image clips are skipped. The storyline closes up;
/// other clips keep their start.
///
///     [ A ──────── ][ B ]   A at 2x   ->   [ A ──── ][ B ]
bool setPlaybackRate(ProjectSession& session, const std::vector<std::string>& clipIDs, double rate);
/// Plays `fromProgramSeconds`–`toProgramSeconds` (longer than 0.5 s) of a clip at `rate`: the clip is
/// split at both ends (an end within 0.02 s before or 0.05 s after an existing edge uses that edge).
///
///     [ A ──|──────|── ]   2x   ->   [ A ─][ A' ─── ][ A" ─ ]   (A' at 2x)
bool applySpeedRegion(ProjectSession& session, std::string_view clipID, double fromProgramSeconds,
                      double toProgramSeconds, double rate);
/// Sets a clip's linear gain, held to 0.0–2.0.
///
///     [ A  gain 1.0 ]   gain 3.0   ->   [ A  gain 2.0 ]
bool setAudioGain(ProjectSession& session, std::string_view clipID, double gain);
/// Replaces a plain clip's source window when `sourceIn` is before `sourceOut`; the storyline closes up.
///
///     storyline: [ A src 2–6 ][ B ]   window 1–3   ->   [ A 1–3 ][ B ]
bool setClipSourceWindow(ProjectSession& session, std::string_view clipID, RationalTime sourceIn,
                         RationalTime sourceOut);
/// Gives a track a role, which names it on the timeline.
///
///     overlay "B-Roll"   role sfx   ->   overlay "SFX"
bool setTrackRole(ProjectSession& session, std::string_view trackID, std::optional<TimelineTrackRole> role);
/// Connects an overlay, audio or text clip to a storyline clip: it keeps its offset from the host's start
/// and follows the host from then on.
///
///     overlay:      [ X ]                  overlay:        [ X ]
///     storyline: [ A ][ B ]  B moves  ->   storyline: [ B ][ A ]  ... X moves with B
bool connectClip(ProjectSession& session, std::string_view clipID, std::string_view hostID);
/// Clears what makes no sense on `lane`: the connection and the webcam slot on the storyline, every picture
/// setting on the audio track.
///
///     overlay [ X  webcam slot, hung on A ]   to the storyline   ->   [ X ]
void prepareClipForLane(TimelineClip& clip, TimelineLaneKind lane);

/// Moves clips from "overlay" to "audio" when their source has no picture (an audio file dropped on the
/// overlay lane plays as sound, not as a black picture).
///
///     overlay: [music.wav] [broll.mov]        overlay: [broll.mov]
///     audio:   -                         ->   audio:   [music.wav]
void healMisplacedAudioOnOverlay(ProjectSession& session);

}  // namespace TimelineEditor

}  // namespace morvane::app
