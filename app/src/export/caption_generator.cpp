#include "morvane/app/export/caption_generator.hpp"

#include <algorithm>
#include <iterator>
#include <optional>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/support/uuid.hpp"

namespace morvane::app {

using engine::CaptionWordTiming;
using engine::RationalTime;
using engine::TextClipStyle;
using engine::TextStylePreset;

namespace {

constexpr std::int32_t kCaptionTimescale = 600;
// Generated captions are text clips of this source, which tells them from the user's own titles.
constexpr std::string_view kCaptionSourceID = "caption";
constexpr double kMinimumWordSeconds = 0.04;
constexpr std::size_t kMaxWordsPerCue = 10;
constexpr double kMaxCueSeconds = 4.0;
constexpr std::size_t kMinWordsBeforeStop = 4;

RationalTime captionTime(double seconds) {
    return RationalTime::fromSeconds(seconds, kCaptionTimescale);
}

// A word timed in program seconds, before it becomes a `CaptionWordTiming`.
CaptionWordTiming timedWord(const std::string& text, double start, double end) {
    return {.text = text,
            .start = captionTime(start),
            .end = captionTime(std::max(end, start + kMinimumWordSeconds))};
}

TextClipStyle captionStyle(const ProjectSession& session, TextStylePreset preset) {
    TextClipStyle style;
    style.fontSize = 36;
    style.margin = 28;
    style.horizontalAlign = engine::TextHorizontalAlign::center;
    const auto& format = session.timeline->projectFormat;
    const double width = format ? format->width : 1920;
    const double height = format ? format->height : 1080;
    const double scale = std::clamp(std::min(width, height) / 1080.0, 0.5, 1.35);
    if (preset != TextStylePreset::karaoke) style = style.applyingPreset(TextStylePreset::caption);
    return style.scaled(scale);
}

// Adds the cues of `words` to the text track as caption clips; returns how many.
int addCues(TimelineTrack& track, const std::vector<CaptionWordTiming>& words, const TextClipStyle& style) {
    if (words.empty() || !(words.front().start < words.back().end)) return 0;
    int added = 0;
    for (auto& cue : CaptionGenerator::chunkCaptionCues(words, {}, words.front().start, words.back().end)) {
        TimelineClip clip{.id = makeUUID(),
                          .sourceID = std::string(kCaptionSourceID),
                          .label = cue.text,
                          .sourceIn = RationalTime::zero,
                          .sourceOut = cue.end.subtracting(cue.start),
                          .timelineStart = cue.start,
                          .textContent = cue.text,
                          .textStyle = style,
                          .captionWords = std::move(cue.words),
                          .kind = std::string(TimelineClipKinds::text)};
        track.clips.push_back(std::move(clip));
        ++added;
    }
    return added;
}

// The words of one storyline clip in program time, a cue run per transcript segment. Words are found by
// binary search over the transcript, so a long talk costs its words once per clip that plays them.
int appendCaptions(const TimelineClip& clip, const ProjectSession& session, const TextClipStyle& style,
                   TimelineTrack& textTrack) {
    const auto& words = session.transcript->words;
    const auto& segments = session.segments->segments;
    const engine::ClipTimeMap map = clip.clipTimeMap();
    int added = 0;
    for (const auto& range : map.ranges()) {
        auto word = std::lower_bound(words.begin(), words.end(), range.sourceIn,
                                     [](const auto& w, const RationalTime& t) { return w.start < t; });
        std::vector<CaptionWordTiming> run;
        int runSegment = -1;
        for (; word != words.end() && word->start < range.sourceOut; ++word) {
            const auto start = map.programTime(word->start);
            if (!start) continue;
            const RationalTime sourceEnd = std::min(word->end, range.sourceOut);
            const auto end = map.programTime(sourceEnd);
            // Segments run in word order: the last one starting at or before the word holds it, if any.
            const auto after = std::upper_bound(segments.begin(), segments.end(), word->id,
                                                [](int id, const auto& s) { return id < s.wordStartID; });
            const int segmentID = after != segments.begin() && word->id <= std::prev(after)->wordEndID
                                      ? std::prev(after)->id
                                      : -1;
            if (segmentID != runSegment && !run.empty()) {
                added += addCues(textTrack, run, style);
                run.clear();
            }
            runSegment = segmentID;
            run.push_back(timedWord(word->text, start->seconds(), end ? end->seconds() : start->seconds()));
        }
        added += addCues(textTrack, run, style);
    }
    return added;
}

// Without storyline clips that carry the transcript: the words through the session's playback map.
int appendCaptionsUsingPlaybackMap(const ProjectSession& session, const TextClipStyle& style,
                                   TimelineTrack& textTrack) {
    if (!session.transcript || !session.segments || session.playbackRanges.empty()) return 0;
    const auto toProgram = [&](double t) -> std::optional<double> {
        for (const auto& entry : session.playbackRanges) {
            if (t >= entry.sourceStart && t <= entry.sourceEnd) {
                const double rate = entry.playbackRate > 0.0 ? entry.playbackRate : 1.0;
                return entry.compositionStart + (std::min(t, entry.sourceEnd) - entry.sourceStart) / rate;
            }
        }
        return std::nullopt;
    };
    const auto& words = session.transcript->words;
    int added = 0;
    for (const auto& segment : session.segments->segments) {
        std::vector<CaptionWordTiming> run;
        auto word = std::lower_bound(words.begin(), words.end(), segment.start,
                                     [](const auto& w, const RationalTime& t) { return w.start < t; });
        for (; word != words.end() && !(segment.end < word->start); ++word) {
            const auto start = toProgram(word->start.seconds());
            const auto end = toProgram(word->end.seconds());
            if (!start || !end) continue;
            run.push_back(timedWord(word->text, *start, *end));
        }
        added += addCues(textTrack, run, style);
    }
    return added;
}

}  // namespace

std::vector<GeneratedCaptionCue> CaptionGenerator::chunkCaptionCues(
    const std::vector<CaptionWordTiming>& words, const std::string& fullText, RationalTime programStart,
    RationalTime programEnd) {
    if (words.empty()) return {{.text = fullText, .start = programStart, .end = programEnd, .words = {}}};
    std::vector<GeneratedCaptionCue> cues;
    std::vector<CaptionWordTiming> chunk;
    const auto close = [&] {
        if (chunk.empty()) return;
        GeneratedCaptionCue cue{.start = chunk.front().start, .end = chunk.back().end};
        for (const auto& w : chunk)
            cue.text += (cue.text.empty() ? "" : " ") + w.text;
        cue.words = std::move(chunk);
        cues.push_back(std::move(cue));
        chunk.clear();
    };
    for (const auto& word : words) {
        if (!chunk.empty() && (chunk.size() >= kMaxWordsPerCue ||
                               word.end.seconds() - chunk.front().start.seconds() > kMaxCueSeconds))
            close();
        chunk.push_back(word);
        const char last = word.text.empty() ? '\0' : word.text.back();
        if ((last == '.' || last == '?' || last == '!') && chunk.size() >= kMinWordsBeforeStop) close();
    }
    close();
    return cues;
}

int CaptionGenerator::generateCaptions(ProjectSession& session, TextStylePreset preset) {
    if (!session.timeline) return 0;
    const TextClipStyle style = captionStyle(session, preset);
    TimelineTrack textTrack =
        session.timeline->track(TimelineTrackIDs::text)
            ? *session.timeline->track(TimelineTrackIDs::text)
            : TimelineTrack{
                  .id = std::string(TimelineTrackIDs::text), .kind = TimelineTrackKind::text, .name = "Text"};
    std::erase_if(textTrack.clips, [](const TimelineClip& c) {
        return c.kind == TimelineClipKinds::caption || c.sourceID == kCaptionSourceID;
    });
    session.rebuildPlaybackMap();

    int added = 0;
    if (session.transcript && session.segments && !session.transcript->words.empty()) {
        const TimelineTrack* storyline = session.timeline->track(TimelineTrackIDs::source);
        if (!storyline || storyline->clips.empty())
            storyline = session.timeline->track(TimelineTrackIDs::program);
        if (storyline) {
            for (const auto& clip : storyline->clips) {
                if (clip.sourceID != session.transcriptSourceID.value_or("src1")) continue;
                added += appendCaptions(clip, session, style, textTrack);
            }
        }
        if (added == 0) added = appendCaptionsUsingPlaybackMap(session, style, textTrack);
    }
    std::stable_sort(textTrack.clips.begin(), textTrack.clips.end(), [](const auto& a, const auto& b) {
        return a.timelineStart.seconds() < b.timelineStart.seconds();
    });
    session.timeline->updateTrack(std::move(textTrack));
    return added;
}

}  // namespace morvane::app
