#include "morvane/app/timeline/transcript_cut.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/engine/time/clip_speed.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::app {

using intelligence::TranscriptSegment;
using intelligence::TranscriptWord;
namespace ClipSpeed = engine::ClipSpeed;

namespace {

constexpr std::size_t kLabelLimit = 28;
constexpr std::size_t kLabelCut = 25;

std::string clipLabel(const std::string& text) {
    if (intelligence::characterCount(text) <= kLabelLimit) return text;
    return std::string(intelligence::firstCharacters(text, kLabelCut)) + "…";
}

// The segments that hold at least one of `sortedWordIDs`, in segment order.
std::vector<int> segmentsHolding(const std::vector<int>& sortedWordIDs,
                                 const intelligence::SegmentDocument& segments) {
    std::vector<int> ids;
    for (const auto& segment : segments.segments) {
        const auto first = std::lower_bound(sortedWordIDs.begin(), sortedWordIDs.end(), segment.wordStartID);
        if (first != sortedWordIDs.end() && *first <= segment.wordEndID) ids.push_back(segment.id);
    }
    return ids;
}

bool hasUsableRate(const TimelineClip& clip) {
    return clip.playbackRate && std::isfinite(*clip.playbackRate) && *clip.playbackRate > 0.0;
}

RationalTime packedLength(const TimelineClip& clip) {
    const RationalTime span = clip.sourceSpan();
    return hasUsableRate(clip) ? ClipSpeed::programDuration(span, clip.playbackRate) : span;
}

std::vector<engine::ClipTimeMap::Span> spansOf(const TimelineClip& clip) {
    std::vector<engine::ClipTimeMap::Span> spans;
    for (const auto& range : clip.transcriptSourceRanges())
        spans.push_back({range.sourceIn, range.sourceOut});
    return spans;
}

}  // namespace

std::vector<TranscriptCutMaterializer::KeptRange> TranscriptCutMaterializer::keptRanges(
    const std::vector<TranscriptWord>& words, const std::set<int>& removed,
    const intelligence::SegmentDocument* segments, double maxGap) {
    std::vector<const TranscriptWord*> sorted;
    sorted.reserve(words.size());
    for (const auto& word : words)
        sorted.push_back(&word);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const TranscriptWord* a, const TranscriptWord* b) { return a->start < b->start; });

    std::vector<KeptRange> ranges;
    std::vector<const TranscriptWord*> run;
    const auto flush = [&] {
        if (run.empty()) return;
        KeptRange range{.start = run.front()->start, .end = run.back()->end};
        std::string text;
        for (const TranscriptWord* word : run) {
            range.wordIDs.push_back(word->id);
            if (!text.empty()) text += ' ';
            text += word->text;
        }
        range.label = clipLabel(text);
        if (segments) {
            std::vector<int> ids = range.wordIDs;
            std::sort(ids.begin(), ids.end());
            range.segmentIDs = segmentsHolding(ids, *segments);
        }
        ranges.push_back(std::move(range));
        run.clear();
    };
    for (const TranscriptWord* word : sorted) {
        if (removed.contains(word->id)) {
            flush();
            continue;
        }
        if (!run.empty() && word->start.seconds() - run.back()->end.seconds() >= maxGap) flush();
        run.push_back(word);
    }
    flush();
    return ranges;
}

const TimelineClip* TranscriptCutMaterializer::bestDonor(const TimelineClip& clip,
                                                         const std::vector<TimelineClip>& donors) {
    const TimelineClip* best = nullptr;
    double bestScore = 0.0;
    for (const auto& donor : donors) {
        if (donor.isTextLike() || donor.sourceID != clip.sourceID) continue;
        const double overlap = engine::ClipTimeMap::overlapSeconds(clip.sourceIn.seconds(),
                                                                   clip.sourceOut.seconds(), spansOf(donor));
        if (overlap <= 0.02) continue;
        // A donor with no picture treatment counts for half: it has nothing to hand on.
        const double score = overlap * (donor.preservesEditChrome() ? 1.0 : 0.5) +
                             0.001 * std::max(donor.sourceDuration().seconds(), 0.0);
        if (!best || score > bestScore) {
            best = &donor;
            bestScore = score;
        }
    }
    return best;
}

std::vector<TimelineClip> TranscriptCutMaterializer::rematerializedClips(
    const std::string& sourceID, const ProjectSession& session, const std::vector<TimelineClip>& donors) {
    std::vector<TimelineClip> clips;
    RationalTime cursor = RationalTime::zero;
    const auto place = [&](TimelineClip clip) {
        clip.timelineStart = cursor;
        cursor = cursor.adding(clip.sourceOut.subtracting(clip.sourceIn));
        if (const TimelineClip* donor = bestDonor(clip, donors)) clip = clip.inheritingPictureEffects(*donor);
        clips.push_back(std::move(clip));
    };
    if (session.transcript && !session.transcript->words.empty()) {
        const auto* segments = session.segments ? &*session.segments : nullptr;
        for (auto& range : keptRanges(session.transcript->words, session.removedWordIDs, segments)) {
            place({.id = makeUUID(),
                   .sourceID = sourceID,
                   .label = std::move(range.label),
                   .sourceIn = range.start,
                   .sourceOut = range.end,
                   .originSegmentIDs = std::move(range.segmentIDs),
                   .originWordIDs = std::move(range.wordIDs),
                   .playbackRate = 1.0});
        }
        return clips;
    }
    std::vector<const CutItem*> accepted;
    for (const auto& item : session.cutItems) {
        if (item.accepted) accepted.push_back(&item);
    }
    std::stable_sort(accepted.begin(), accepted.end(),
                     [](const CutItem* a, const CutItem* b) { return a->start < b->start; });
    for (std::size_t i = 0; i < accepted.size(); ++i) {
        const CutItem& item = *accepted[i];
        double end = item.end.seconds() + segmentTailPadSeconds;
        if (i + 1 < accepted.size())
            end = std::max(std::min(end, accepted[i + 1]->start.seconds()), item.end.seconds());
        place({.id = makeUUID(),
               .sourceID = sourceID,
               .label = fmt::format("Seg {:02}", item.segmentID),
               .sourceIn = item.start,
               .sourceOut = RationalTime::fromSeconds(end, RationalTime::secondsTimescale),
               .originSegmentIDs = std::vector<int>{item.segmentID},
               .playbackRate = 1.0});
    }
    return clips;
}

std::vector<TimelineClip> TranscriptCutMaterializer::spliceReplacement(
    const std::vector<TimelineClip>& replacement, const std::string& sourceID,
    const std::vector<TimelineClip>& clips) {
    std::vector<TimelineClip> result;
    bool placed = false;
    for (const auto& clip : clips) {
        if (clip.sourceID == sourceID && !clip.isTextLike()) {
            if (!placed) result.insert(result.end(), replacement.begin(), replacement.end());
            placed = true;
            continue;
        }
        result.push_back(clip);
    }
    if (!placed) result.insert(result.end(), replacement.begin(), replacement.end());
    return result;
}

void TranscriptCutMaterializer::packProgramStarts(std::vector<TimelineClip>& clips) {
    RationalTime cursor = RationalTime::zero;
    for (auto& clip : clips) {
        clip.timelineStart = cursor;
        cursor = cursor.adding(packedLength(clip));
    }
}

void TranscriptCutMaterializer::rebuildProgram(ProjectSession& session) {
    if (!session.timeline) return;
    const std::string sourceID = session.transcriptSourceID.value_or(session.primarySourceID);
    std::vector<TimelineClip> donors = session.timeline->clips(TimelineTrackIDs::source);
    const auto& program = session.timeline->clips(TimelineTrackIDs::program);
    donors.insert(donors.end(), program.begin(), program.end());
    std::vector<TimelineClip> replacement = rematerializedClips(sourceID, session, donors);
    std::vector<TimelineClip> clips =
        program.empty() ? std::move(replacement) : spliceReplacement(replacement, sourceID, program);
    packProgramStarts(clips);
    if (TimelineTrack* track = session.timeline->track(TimelineTrackIDs::program)) {
        track->clips = std::move(clips);
    } else {
        session.timeline->updateTrack({std::string(TimelineTrackIDs::program), TimelineTrackKind::program,
                                       "Rough Cut", TimelineTrackRole::dialogue, std::move(clips)});
    }
}

void TranscriptCutMaterializer::setWordsRemoved(ProjectSession& session, const std::set<int>& wordIDs,
                                                bool removed) {
    seedRemovedWordsFromCurrentCutIfNeeded(session);
    if (removed) {
        session.removedWordIDs.insert(wordIDs.begin(), wordIDs.end());
    } else if (!session.removedWordIDs.empty()) {
        for (int id : wordIDs)
            session.removedWordIDs.erase(id);
    }
    syncCutItemsFromWords(session);
    rebuildProgram(session);
}

void TranscriptCutMaterializer::setSegmentAccepted(ProjectSession& session, bool accepted, int segmentID) {
    if (!session.segments) return;
    const auto& all = session.segments->segments;
    const auto segment =
        std::find_if(all.begin(), all.end(), [&](const TranscriptSegment& s) { return s.id == segmentID; });
    if (segment == all.end()) return;
    seedRemovedWordsFromCurrentCutIfNeeded(session);
    for (int id : session.wordIDs(*segment)) {
        if (accepted) {
            session.removedWordIDs.erase(id);
        } else {
            session.removedWordIDs.insert(id);
        }
    }
    for (auto& item : session.cutItems) {
        if (item.segmentID == segmentID) item.accepted = accepted;
    }
    syncCutItemsFromWords(session);
    rebuildProgram(session);
}

void TranscriptCutMaterializer::seedRemovedWordsFromCurrentCutIfNeeded(ProjectSession& session) {
    if (!session.removedWordIDs.empty() || !session.transcript || session.transcript->words.empty()) return;
    const std::vector<TimelineClip> clips = storylineClips(session);
    const bool anyWordOrigins = std::any_of(clips.begin(), clips.end(), [](const TimelineClip& c) {
        return c.originWordIDs && !c.originWordIDs->empty();
    });
    if (!anyWordOrigins) return;
    const std::set<int> kept = keptWordIDs(session.transcript->words, clips);
    for (const auto& word : session.transcript->words) {
        if (!kept.contains(word.id)) session.removedWordIDs.insert(word.id);
    }
}

void TranscriptCutMaterializer::syncCutItemsFromWords(ProjectSession& session) {
    if (!session.segments) return;
    if (session.cutItems.empty()) session.seedCutItemsFromSegments("transcript");
    if (session.transcript) {
        std::unordered_map<int, const TranscriptSegment*> byID;
        for (const auto& segment : session.segments->segments)
            byID.emplace(segment.id, &segment);
        for (auto& item : session.cutItems) {
            const auto found = byID.find(item.segmentID);
            if (found != byID.end()) item.accepted = session.segmentHasKeptWords(*found->second);
        }
    }
    session.rebuildPlaybackMap();
}

std::set<int> TranscriptCutMaterializer::keptWordIDs(const std::vector<TranscriptWord>& words,
                                                     const std::vector<TimelineClip>& clips) {
    std::set<int> kept;
    if (clips.empty() || words.empty()) return kept;
    std::unordered_set<int> known;
    for (const auto& word : words)
        known.insert(word.id);
    for (const auto& clip : clips) {
        if (clip.originWordIDs && !clip.originWordIDs->empty()) {
            for (int id : *clip.originWordIDs) {
                if (known.contains(id)) kept.insert(id);
            }
            continue;
        }
        const auto ranges = clip.transcriptSourceRanges();
        for (const auto& word : words) {
            const double middle = (word.start.seconds() + word.end.seconds()) / 2.0;
            for (const auto& range : ranges) {
                if (middle >= range.sourceIn.seconds() && middle < range.sourceOut.seconds()) {
                    kept.insert(word.id);
                    break;
                }
            }
        }
    }
    return kept;
}

bool TranscriptCutMaterializer::wordIsInKeepSet(const TranscriptWord& word,
                                                const std::vector<TimelineClip>& clips) {
    if (clips.empty()) return true;
    const double middle = (word.start.seconds() + word.end.seconds()) / 2.0;
    for (const auto& clip : clips) {
        if (clip.originWordIDs) {
            if (std::find(clip.originWordIDs->begin(), clip.originWordIDs->end(), word.id) !=
                clip.originWordIDs->end()) {
                return true;
            }
            continue;
        }
        for (const auto& range : clip.transcriptSourceRanges()) {
            if (middle >= range.sourceIn.seconds() && middle < range.sourceOut.seconds()) return true;
        }
    }
    return false;
}

std::vector<TimelineClip> TranscriptCutMaterializer::storylineClips(const ProjectSession& session) {
    if (!session.timeline) return {};
    const std::string sourceID = session.transcriptSourceID.value_or(session.primarySourceID);
    std::vector<TimelineClip> clips;
    for (const auto& clip : session.timeline->clips(TimelineTrackIDs::source)) {
        if (clip.sourceID == sourceID) clips.push_back(clip);
    }
    return clips;
}

std::set<int> TranscriptCutMaterializer::displayRemovedWordIDs(const ProjectSession& session) {
    if (!session.removedWordIDs.empty()) return session.removedWordIDs;
    if (!session.transcript) return {};
    const std::vector<TimelineClip> clips = storylineClips(session);
    if (!TimelinePlanBridge::storylineIsPackedCut(clips)) return {};
    const std::set<int> kept = keptWordIDs(session.transcript->words, clips);
    std::set<int> struck;
    for (const auto& word : session.transcript->words) {
        if (!kept.contains(word.id)) struck.insert(word.id);
    }
    return struck;
}

bool TranscriptCutMaterializer::segmentIsInStorylineCut(const TranscriptSegment& segment,
                                                        const ProjectSession& session) {
    for (const auto& clip : storylineClips(session)) {
        if (clip.originSegmentIDs) {
            if (std::find(clip.originSegmentIDs->begin(), clip.originSegmentIDs->end(), segment.id) !=
                clip.originSegmentIDs->end()) {
                return true;
            }
            continue;
        }
        if (engine::ClipTimeMap::overlapSeconds(segment.start.seconds(), segment.end.seconds(),
                                                spansOf(clip)) > 0.0) {
            return true;
        }
    }
    return false;
}

std::vector<PlaybackRange> PlaybackMapper::ranges(const std::vector<TimelineClip>& clips) {
    std::vector<const TimelineClip*> sorted;
    for (const auto& clip : clips)
        sorted.push_back(&clip);
    std::stable_sort(sorted.begin(), sorted.end(), [](const TimelineClip* a, const TimelineClip* b) {
        return a->timelineStart < b->timelineStart;
    });
    std::vector<PlaybackRange> result;
    for (const TimelineClip* clip : sorted) {
        const int segmentID =
            clip->originSegmentIDs && !clip->originSegmentIDs->empty() ? clip->originSegmentIDs->front() : -1;
        const double rate = hasUsableRate(*clip) ? *clip->playbackRate : 1.0;
        std::vector<TimelineSourceRange> pieces;
        if (clip->assemblyRanges && !clip->assemblyRanges->empty()) {
            pieces = *clip->assemblyRanges;
            // Where the transcript's own ranges line up one to one, they give the source time.
            if (clip->originSourceRanges && clip->originSourceRanges->size() == pieces.size()) {
                pieces = *clip->originSourceRanges;
            }
        } else {
            pieces = {{clip->sourceIn, clip->sourceOut}};
        }
        double composition = clip->timelineStart.seconds();
        for (const auto& piece : pieces) {
            const double start = piece.sourceIn.seconds();
            const double end = piece.sourceOut.seconds();
            if (!(end > start)) continue;
            PlaybackRange range{segmentID, start, end, composition, rate};
            composition += range.compositionLength();
            result.push_back(range);
        }
    }
    return result;
}

std::vector<PlaybackRange> PlaybackMapper::ranges(const std::vector<CutItem>& cutItems) {
    std::vector<const CutItem*> accepted;
    for (const auto& item : cutItems) {
        if (item.accepted) accepted.push_back(&item);
    }
    std::stable_sort(accepted.begin(), accepted.end(),
                     [](const CutItem* a, const CutItem* b) { return a->start < b->start; });
    std::vector<PlaybackRange> result;
    double composition = 0.0;
    for (const CutItem* item : accepted) {
        PlaybackRange range{item->segmentID, item->start.seconds(), item->end.seconds(), composition, 1.0};
        composition += range.compositionLength();
        result.push_back(range);
    }
    return result;
}

std::optional<double> PlaybackMapper::sourceToComposition(double seconds,
                                                          const std::vector<PlaybackRange>& ranges) {
    if (ranges.empty()) return seconds;
    for (const auto& range : ranges) {
        if (range.sourceStart <= seconds && seconds <= range.sourceEnd) {
            if (seconds >= range.sourceEnd) return range.compositionStart + range.compositionLength();
            const double rate = range.playbackRate > 0.0 ? range.playbackRate : 1.0;
            return range.compositionStart + (seconds - range.sourceStart) / rate;
        }
    }
    return std::nullopt;
}

std::optional<double> PlaybackMapper::nearestComposition(double sourceSeconds,
                                                         const std::vector<PlaybackRange>& ranges) {
    if (ranges.empty()) return sourceSeconds;
    if (auto hit = sourceToComposition(sourceSeconds, ranges)) return hit;
    std::optional<double> best;
    double bestDistance = 0.0;
    for (const auto& range : ranges) {
        const bool before = sourceSeconds < range.sourceStart;
        const double distance = before ? range.sourceStart - sourceSeconds : sourceSeconds - range.sourceEnd;
        const double target =
            before ? range.compositionStart : range.compositionStart + range.compositionLength();
        if (!best || distance < bestDistance) {
            best = target;
            bestDistance = distance;
        }
    }
    return best;
}

std::optional<double> PlaybackMapper::compositionToSourceOptional(double seconds,
                                                                  const std::vector<PlaybackRange>& ranges) {
    if (ranges.empty()) return seconds;
    for (const auto& range : ranges) {
        if (range.compositionStart <= seconds &&
            seconds < range.compositionStart + range.compositionLength()) {
            const double rate = range.playbackRate > 0.0 ? range.playbackRate : 1.0;
            return range.sourceStart + (seconds - range.compositionStart) * rate;
        }
    }
    return std::nullopt;
}

double PlaybackMapper::compositionToSource(double seconds, const std::vector<PlaybackRange>& ranges) {
    if (ranges.empty()) return seconds;
    if (auto hit = compositionToSourceOptional(seconds, ranges)) return *hit;
    const PlaybackRange& last = ranges.back();
    if (seconds >= last.compositionStart + last.compositionLength()) return last.sourceEnd;
    return ranges.front().sourceStart;
}

bool PlaybackMapper::hasProgramCoverage(double compositionSeconds, const std::vector<PlaybackRange>& ranges) {
    if (ranges.empty()) return true;
    return std::any_of(ranges.begin(), ranges.end(), [&](const PlaybackRange& r) {
        return r.compositionStart <= compositionSeconds &&
               compositionSeconds < r.compositionStart + r.compositionLength();
    });
}

std::vector<engine::TimeSpan> SpeechSpanMapper::merge(std::vector<engine::TimeSpan> spans) {
    std::stable_sort(spans.begin(), spans.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<engine::TimeSpan> merged;
    for (const auto& span : spans) {
        if (!merged.empty() && span.start <= merged.back().end) {
            if (merged.back().end < span.end) merged.back().end = span.end;
        } else {
            merged.push_back(span);
        }
    }
    return merged;
}

std::vector<engine::TimeSpan> SpeechSpanMapper::programSpeechSpans(ProjectSession& session) {
    session.rebuildPlaybackMap();
    std::vector<engine::TimeSpan> spans;
    for (const auto& range : session.playbackRanges) {
        const double length = range.compositionLength();
        if (!(length > 0.0)) continue;
        spans.push_back(
            {RationalTime::fromSeconds(range.compositionStart, RationalTime::secondsTimescale),
             RationalTime::fromSeconds(range.compositionStart + length, RationalTime::secondsTimescale)});
    }
    return spans;
}

std::vector<int> SpeechSpanMapper::segments(const SpeechLaneBlock& block, const ProjectSession& session) {
    std::vector<int> ids;
    for (const auto& range : session.playbackRanges) {
        const double end = range.compositionStart + range.compositionLength();
        if (range.segmentID >= 0 && range.compositionStart < block.end && end > block.start &&
            std::find(ids.begin(), ids.end(), range.segmentID) == ids.end()) {
            ids.push_back(range.segmentID);
        }
    }
    return ids;
}

std::vector<CutItem> SpeechSpanMapper::cutItems(const SpeechLaneBlock& block, const ProjectSession& session) {
    const std::vector<int> ids = segments(block, session);
    std::vector<CutItem> items;
    for (const auto& item : session.cutItems) {
        if (std::find(ids.begin(), ids.end(), item.segmentID) != ids.end()) items.push_back(item);
    }
    return items;
}

std::vector<SpeechLaneBlock> SpeechSpanMapper::laneBlocks(ProjectSession& session) {
    std::vector<SpeechLaneBlock> blocks;
    for (const auto& span : merge(programSpeechSpans(session)))
        blocks.push_back({span.start.seconds(), span.end.seconds()});
    return blocks;
}

std::vector<SpeechLaneBlock> SpeechSpanMapper::fallbackBlocks(const ProjectSession& session) {
    std::vector<engine::TimeSpan> spans;
    if (session.segments) {
        for (const auto& segment : session.segments->segments)
            spans.push_back({segment.start, segment.end});
    }
    std::vector<SpeechLaneBlock> blocks;
    for (const auto& span : merge(std::move(spans)))
        blocks.push_back({span.start.seconds(), span.end.seconds()});
    return blocks;
}

}  // namespace morvane::app
