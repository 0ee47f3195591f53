#pragma once

/// Captions from the transcript of what is kept: text clips of the source "caption" on the "text" track,
/// one a cue, each with its words' program times for highlighting. The export writes them out as SRT or
/// WebVTT.
///
///     const int cues = CaptionGenerator::generateCaptions(session, engine::TextStylePreset::caption);

#include <string>
#include <vector>

#include "morvane/engine/export/caption_word_timing.hpp"
#include "morvane/engine/text/text_clip_style.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::app {

class ProjectSession;

/// One caption: its words and where it plays, in program time.
struct GeneratedCaptionCue {
    std::string text;
    engine::RationalTime start;
    engine::RationalTime end;
    std::vector<engine::CaptionWordTiming> words;
};

namespace CaptionGenerator {

/// Replaces the text track's caption clips (the user's other text clips stay) with cues of the kept
/// speech, styled by `preset` at the canvas's scale. Returns how many cues it added; 0 without a
/// timeline, a transcript, segments or words to use. Main thread; the caller records the undo step.
int generateCaptions(ProjectSession& session, engine::TextStylePreset preset);

/// Cuts timed words into cues: a cue closes before a word once it holds 10 words or that word ends more
/// than 4 s after the cue began, and after a word ending in ".", "?" or "!" once it holds 4. Without
/// words, one cue of `fullText` from `programStart` to `programEnd`.
[[nodiscard]] std::vector<GeneratedCaptionCue> chunkCaptionCues(
    const std::vector<engine::CaptionWordTiming>& words, const std::string& fullText,
    engine::RationalTime programStart, engine::RationalTime programEnd);

}  // namespace CaptionGenerator

}  // namespace morvane::app
