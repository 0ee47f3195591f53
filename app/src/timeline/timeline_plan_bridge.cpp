#include "morvane/app/timeline/timeline_plan_bridge.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "morvane/app/session/project_session.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::app {

namespace fs = std::filesystem;
namespace ClipSpeed = engine::ClipSpeed;
using engine::EditPlan;
using engine::EditPlanOperation;

namespace {

constexpr std::string_view kClipType = "clip";
constexpr std::string_view kTextType = "text";

void sortByStart(std::vector<TimelineClip>& clips, bool tiesBySourceIn) {
    std::stable_sort(clips.begin(), clips.end(),
                     [tiesBySourceIn](const TimelineClip& a, const TimelineClip& b) {
                         if (a.timelineStart < b.timelineStart) return true;
                         if (b.timelineStart < a.timelineStart) return false;
                         return tiesBySourceIn && a.sourceIn < b.sourceIn;
                     });
}

double programEndSeconds(const std::vector<TimelineClip>& clips) {
    double end = 0.0;
    for (const auto& clip : clips) {
        end =
            std::max(end, clip.timelineStart.seconds() + TimelinePlanBridge::programDuration(clip).seconds());
    }
    return end;
}

std::string timeText(RationalTime time) {
    return time.formatted(false);
}

std::vector<std::int64_t> wideIDs(const std::vector<int>& ids) {
    return {ids.begin(), ids.end()};
}

// The picture and sound fields a "clip" operation copies from its clip.
void copyClipFields(const TimelineClip& clip, EditPlanOperation& op, bool keepRate) {
    op.audioGain = clip.audioGain;
    if (keepRate) op.playbackRate = clip.playbackRate;
    op.transform = clip.transform;
    op.slotID = clip.slotID;
    op.reframeKeyframes = clip.resolvedReframeKeyframes();
    op.matte = clip.matte;
    op.presentationStyle = clip.presentationStyle;
    op.cursorStyle = clip.cursorStyle;
    op.cursorTrackID = clip.cursorTrackID;
    op.zoomRegions = clip.zoomRegions;
}

const char* presetText(engine::TextStylePreset preset) {
    return engine::kTextStylePresetNames.text(preset).data();
}

// Where each primary clip plays, without copying the clips as `primaryVideoClips` does: a storyline clip
// may hold hundreds of ranges, and connected clips are re-placed after every edit. A rough cut plays where
// it lies; without one the storyline is on the program axis, where its clips lie too.
std::map<std::string, RationalTime> primaryClipStarts(const ProjectSession& session) {
    const std::vector<TimelineClip>& program = session.timeline->clips(TimelineTrackIDs::program);
    std::map<std::string, RationalTime> starts;
    for (const auto& clip : program.empty() ? session.timeline->clips(TimelineTrackIDs::source) : program)
        starts.emplace(clip.id, clip.timelineStart);
    return starts;
}

}  // namespace

bool TimelinePlanBridge::storylineIsPackedCut(const std::vector<TimelineClip>& clips) {
    if (clips.empty()) return false;
    if (clips.size() >= 2) return true;
    const TimelineClip& clip = clips.front();
    return (clip.assemblyRanges && !clip.assemblyRanges->empty()) ||
           (clip.originWordIDs && !clip.originWordIDs->empty());
}

bool TimelinePlanBridge::storylineUsesProgramAxis(const ProjectSession& session) {
    if (!session.timeline) return false;
    const TimelineTrack* source = session.timeline->track(TimelineTrackIDs::source);
    if (!source || source->clips.empty()) return false;
    if (storylineIsPackedCut(source->clips)) return true;
    const TimelineTrack* program = session.timeline->track(TimelineTrackIDs::program);
    return !program || program->clips.empty();
}

RationalTime TimelinePlanBridge::programDuration(const TimelineClip& clip) {
    return ClipSpeed::programDuration(clip.sourceSpan(), clip.playbackRate);
}

double TimelinePlanBridge::programDurationSeconds(const ProjectSession& session) {
    return programEndSeconds(primaryVideoClips(session));
}

double TimelinePlanBridge::timelineAxisDuration(const ProjectSession& session) {
    // The program's length: the end of the last primary clip or of anything laid over the program.
    double program = programEndSeconds(primaryVideoClips(session));
    if (session.timeline) {
        for (const std::string_view id :
             {TimelineTrackIDs::overlay, TimelineTrackIDs::audio, TimelineTrackIDs::text}) {
            program = std::max(program, programEndSeconds(session.timeline->clips(id)));
        }
    }
    const bool hasRoughCut = session.timeline && !session.timeline->clips(TimelineTrackIDs::program).empty();
    const bool hasStoryline = session.timeline && !session.timeline->clips(TimelineTrackIDs::source).empty();
    if (!hasRoughCut && hasStoryline) {
        return storylineUsesProgramAxis(session) ? program
                                                 : std::max(session.sourceDurationSeconds(), program);
    }
    return std::max(program, 0.1);
}

std::vector<TimelineClip> TimelinePlanBridge::primaryVideoClips(const ProjectSession& session) {
    if (!session.timeline) return {};
    std::vector<TimelineClip> program = session.timeline->clips(TimelineTrackIDs::program);
    if (!program.empty()) {
        sortByStart(program, false);
        return program;
    }
    std::vector<TimelineClip> source = session.timeline->clips(TimelineTrackIDs::source);
    if (source.empty()) return {};
    if (!storylineUsesProgramAxis(session)) return sequentialProgramClips(std::move(source));
    sortByStart(source, true);
    return source;
}

std::vector<TimelineClip> TimelinePlanBridge::sequentialProgramClips(std::vector<TimelineClip> clips) {
    std::stable_sort(clips.begin(), clips.end(),
                     [](const TimelineClip& a, const TimelineClip& b) { return a.sourceIn < b.sourceIn; });
    RationalTime cursor = RationalTime::zero;
    for (auto& clip : clips) {
        clip.timelineStart = cursor;
        cursor = cursor.adding(programDuration(clip));
    }
    return clips;
}

int TimelinePlanBridge::activeTranscriptSegmentCount(const ProjectSession& session) {
    return session.segments ? static_cast<int>(session.segments->segments.size()) : 0;
}

std::optional<std::set<int>> TimelinePlanBridge::activeSegmentIDs(const ProjectSession& session) {
    const std::string source = session.transcriptSourceID.value_or(session.primarySourceID);
    std::set<int> ids;
    bool any = false;
    for (const auto& clip : primaryVideoClips(session)) {
        if (clip.sourceID != source || !clip.originSegmentIDs) continue;
        any = true;
        ids.insert(clip.originSegmentIDs->begin(), clip.originSegmentIDs->end());
    }
    if (!any) return std::nullopt;
    return ids;
}

bool TimelinePlanBridge::hasOverlayCoverage(double seconds, const ProjectSession& session) {
    if (!session.timeline) return false;
    for (const auto& clip : session.timeline->clips(TimelineTrackIDs::overlay)) {
        const double start = clip.timelineStart.seconds();
        if (seconds >= start && seconds < start + programDuration(clip).seconds()) return true;
    }
    return false;
}

std::optional<engine::EditPlanTextPayload> TimelinePlanBridge::textPayload(const TimelineClip& clip) {
    if (clip.kind != TimelineClipKinds::text) return std::nullopt;
    const engine::TextClipStyle style = clip.textStyle.value_or(engine::TextClipStyle{});
    engine::EditPlanTextPayload payload;
    payload.content = clip.textContent.value_or("");
    payload.fontSize = style.fontSize;
    payload.fontName = style.fontName;
    payload.textRed = style.textRed;
    payload.textGreen = style.textGreen;
    payload.textBlue = style.textBlue;
    payload.textAlpha = style.textAlpha;
    payload.backgroundRed = style.backgroundRed;
    payload.backgroundGreen = style.backgroundGreen;
    payload.backgroundBlue = style.backgroundBlue;
    payload.backgroundAlpha = style.backgroundAlpha;
    payload.horizontalAlign = std::string(engine::kTextHorizontalAlignNames.text(style.horizontalAlign));
    payload.verticalPosition = std::string(engine::kTextVerticalPositionNames.text(style.verticalPosition));
    payload.margin = style.margin;
    payload.preset = presetText(style.preset);
    payload.strokeWidth = style.strokeWidth;
    payload.strokeRed = style.strokeRed;
    payload.strokeGreen = style.strokeGreen;
    payload.strokeBlue = style.strokeBlue;
    payload.strokeAlpha = style.strokeAlpha;
    payload.shadowOffsetX = style.shadowOffsetX;
    payload.shadowOffsetY = style.shadowOffsetY;
    payload.shadowBlur = style.shadowBlur;
    payload.shadowRed = style.shadowRed;
    payload.shadowGreen = style.shadowGreen;
    payload.shadowBlue = style.shadowBlue;
    payload.shadowAlpha = style.shadowAlpha;
    payload.highlightRed = style.highlightRed;
    payload.highlightGreen = style.highlightGreen;
    payload.highlightBlue = style.highlightBlue;
    payload.highlightAlpha = style.highlightAlpha;
    if (clip.captionWords) {
        std::vector<engine::EditPlanCaptionWord> words;
        for (const auto& w : *clip.captionWords)
            words.push_back({w.text, timeText(w.start), timeText(w.end)});
        payload.captionWords = std::move(words);
    }
    return payload;
}

std::optional<EditPlan> TimelinePlanBridge::rebuildEditPlan(const ProjectSession& session) {
    if (!session.mediaURL) return std::nullopt;
    EditPlan plan;
    const auto sourceFor = [&](const std::string& id, const fs::path& file) {
        engine::EditPlanSource source{.id = id,
                                      .url = fileURL(fs::absolute(file).lexically_normal()),
                                      .frameDuration = session.frameDuration};
        if (const auto it = session.cursorTracks.find(id); it != session.cursorTracks.end()) {
            source.cursorTrack = it->second;
        }
        return source;
    };
    plan.sources.push_back(sourceFor("src1", *session.mediaURL));
    for (const auto& [id, file] : session.extraSources) {
        if (id != "src1") plan.sources.push_back(sourceFor(id, file));
    }

    const std::vector<TimelineClip> primary = primaryVideoClips(session);
    if (primary.empty() && !session.cutItems.empty() && session.isReviewingProposal()) {
        std::vector<const CutItem*> kept;
        for (const auto& item : session.cutItems) {
            if (item.accepted) kept.push_back(&item);
        }
        std::stable_sort(kept.begin(), kept.end(),
                         [](const CutItem* a, const CutItem* b) { return a->start < b->start; });
        for (const CutItem* item : kept) {
            plan.operations.push_back(
                {.type = "keep",
                 .sourceID = "src1",
                 .start = timeText(item->start),
                 .end = timeText(item->end),
                 .origin = engine::EditPlanOrigin{"instruction", std::vector<std::int64_t>{item->segmentID}},
                 .confidence = item->confidence,
                 .reason = item->reason});
        }
    } else {
        for (const auto& clip : primary) {
            const auto base = [&](RationalTime in, RationalTime out, RationalTime at) {
                EditPlanOperation op{.type = std::string(kClipType),
                                     .sourceID = clip.sourceID,
                                     .start = timeText(in),
                                     .end = timeText(out)};
                if (clip.originSegmentIDs)
                    op.origin = engine::EditPlanOrigin{"segment", wideIDs(*clip.originSegmentIDs)};
                op.reason = clip.label;
                op.label = clip.label;
                op.timelineStart = timeText(at);
                op.trackID = std::string(TimelineTrackIDs::program);
                copyClipFields(clip, op, true);
                return op;
            };
            if (clip.assemblyRanges && !clip.assemblyRanges->empty()) {
                RationalTime cursor = clip.timelineStart;
                for (const auto& range : *clip.assemblyRanges) {
                    plan.operations.push_back(base(range.sourceIn, range.sourceOut, cursor));
                    cursor = cursor.adding(ClipSpeed::programDuration(
                        range.sourceOut.subtracting(range.sourceIn), clip.playbackRate));
                }
            } else {
                plan.operations.push_back(base(clip.sourceIn, clip.sourceOut, clip.timelineStart));
            }
        }
    }

    if (session.timeline) {
        for (const std::string_view trackID :
             {TimelineTrackIDs::overlay, TimelineTrackIDs::audio, TimelineTrackIDs::text}) {
            std::vector<TimelineClip> clips = session.timeline->clips(trackID);
            sortByStart(clips, false);
            for (const auto& clip : clips) {
                const bool isText = clip.kind == TimelineClipKinds::text;
                EditPlanOperation op{
                    .type = std::string(trackID == TimelineTrackIDs::text ? kTextType : kClipType),
                    .sourceID = clip.sourceID};
                if (isText) {
                    op.start = timeText(clip.timelineStart);
                    op.end = timeText(clip.timelineStart.adding(clip.sourceOut.subtracting(clip.sourceIn)));
                } else {
                    op.start = timeText(clip.sourceIn);
                    op.end = timeText(clip.sourceOut);
                }
                if (clip.originSegmentIDs)
                    op.origin = engine::EditPlanOrigin{"segment", wideIDs(*clip.originSegmentIDs)};
                op.reason = clip.textContent.value_or(clip.label);
                op.label = clip.label;
                op.timelineStart = timeText(clip.timelineStart);
                op.trackID = std::string(trackID);
                copyClipFields(clip, op, !isText);
                op.text = textPayload(clip);
                plan.operations.push_back(std::move(op));
            }
        }
        std::vector<TimelineLayoutRegion> regions = session.timeline->layoutRegions;
        std::stable_sort(regions.begin(), regions.end(),
                         [](const auto& a, const auto& b) { return a.timelineStart < b.timelineStart; });
        for (const auto& region : regions) {
            plan.operations.push_back({.type = "layout",
                                       .sourceID = "layout",
                                       .start = timeText(region.timelineStart),
                                       .end = timeText(region.timelineEnd),
                                       .timelineStart = timeText(region.timelineStart),
                                       .label = region.layoutID});
        }
    }
    if (plan.operations.empty()) return std::nullopt;

    const std::string frame = session.timeline ? session.timeline->frameDuration : session.frameDuration;
    plan.timeline.frameDuration = frame;
    const engine::ProjectFormat format = session.timeline && session.timeline->projectFormat
                                             ? *session.timeline->projectFormat
                                             : engine::ProjectFormat::fromTimelineFrameDuration(frame);
    plan.timeline.renderSize = format.renderSizeToken();
    plan.timeline.colorSpace = std::string(engine::kProjectColorSpaceNames.text(format.colorSpace));
    return plan;
}

void TimelinePlanBridge::bootstrapEmptyTimeline(ProjectSession& session) {
    session.timeline = TimelineDocument::makeDefault(session.frameDuration);
}

bool TimelinePlanBridge::bootstrapSourceTimeline(ProjectSession& session, const std::string& sourceID) {
    const double duration = session.sourceDurationSeconds();
    if (!session.mediaURL || !(duration > 0.0)) return false;
    TimelineClip clip{.id = makeUUID(),
                      .sourceID = sourceID,
                      .label = session.mediaURL->filename().string(),
                      .sourceIn = RationalTime::zero,
                      .sourceOut = RationalTime::fromSeconds(duration, RationalTime::secondsTimescale),
                      .timelineStart = RationalTime::zero};
    TimelineDocument document = TimelineDocument::makeDefault(session.frameDuration);
    document.track(TimelineTrackIDs::source)->clips.push_back(std::move(clip));
    session.timeline = std::move(document);
    session.extraSources[sourceID] = *session.mediaURL;
    for (auto& entry : session.mediaBin) {
        if (entry.id == sourceID) entry.kind = MediaBinKind::primary;
    }
    return true;
}

void TimelinePlanBridge::compactSourceTrack(ProjectSession& session) {
    if (!session.timeline) return;
    TimelineTrack* source = session.timeline->track(TimelineTrackIDs::source);
    if (!source) return;
    sortByStart(source->clips, true);
    RationalTime cursor = RationalTime::zero;
    for (auto& clip : source->clips) {
        clip.moveTo(cursor);
        cursor = cursor.adding(programDuration(clip));
    }
    TimelineMagneticBridge::resolveConnectedClips(session);
}

void TimelinePlanBridge::promoteProgramToStoryline(ProjectSession& session) {
    if (!session.timeline) return;
    TimelineTrack* program = session.timeline->track(TimelineTrackIDs::program);
    if (!program) return;
    std::vector<TimelineClip> clips = program->clips;
    sortByStart(clips, true);

    std::vector<std::string> order;
    std::map<std::string, std::vector<const TimelineClip*>> bySource;
    for (const auto& clip : clips) {
        if (!bySource.contains(clip.sourceID)) order.push_back(clip.sourceID);
        bySource[clip.sourceID].push_back(&clip);
    }
    std::vector<TimelineClip> folded;
    for (const auto& sourceID : order) {
        const auto& group = bySource[sourceID];
        TimelineClip result = *group.front();
        result.id = makeUUID();
        std::vector<TimelineSourceRange> assembly;
        std::vector<TimelineSourceRange> origin;
        std::set<int> segmentIDs;
        std::set<int> wordIDs;
        std::vector<engine::ReframeKeyframe> keyframes;
        std::optional<engine::ClipMatte> matte;
        for (const TimelineClip* clip : group) {
            if (clip->assemblyRanges && !clip->assemblyRanges->empty()) {
                assembly.insert(assembly.end(), clip->assemblyRanges->begin(), clip->assemblyRanges->end());
            } else {
                assembly.push_back({clip->sourceIn, clip->sourceOut});
            }
            const auto transcriptRanges = clip->transcriptSourceRanges();
            origin.insert(origin.end(), transcriptRanges.begin(), transcriptRanges.end());
            if (clip->originSegmentIDs)
                segmentIDs.insert(clip->originSegmentIDs->begin(), clip->originSegmentIDs->end());
            if (clip->originWordIDs) wordIDs.insert(clip->originWordIDs->begin(), clip->originWordIDs->end());
            if (clip->reframeKeyframes)
                keyframes.insert(keyframes.end(), clip->reframeKeyframes->begin(),
                                 clip->reframeKeyframes->end());
            if (!matte && clip->matte) matte = clip->matte;
        }
        RationalTime lower = assembly.front().sourceIn;
        RationalTime upper = assembly.front().sourceOut;
        for (const auto& range : assembly) {
            if (range.sourceIn < lower) lower = range.sourceIn;
            if (upper < range.sourceOut) upper = range.sourceOut;
        }
        std::stable_sort(keyframes.begin(), keyframes.end(),
                         [](const auto& a, const auto& b) { return a.programStart < b.programStart; });
        result.sourceIn = lower;
        result.sourceOut = upper;
        result.assemblyRanges = std::move(assembly);
        result.originSourceRanges = std::move(origin);
        result.originSegmentIDs = std::vector<int>(segmentIDs.begin(), segmentIDs.end());
        result.originWordIDs = std::vector<int>(wordIDs.begin(), wordIDs.end());
        result.reframeKeyframes = keyframes.empty() ? std::nullopt : std::optional(std::move(keyframes));
        result.matte = matte;
        result.label = group.size() == 1 ? group.front()->label : "Accepted cut";
        folded.push_back(std::move(result));
    }
    if (!session.timeline->track(TimelineTrackIDs::source)) {
        session.timeline->updateTrack(TimelineDocument::makeDefault(session.frameDuration).tracks.front());
    }
    session.timeline->track(TimelineTrackIDs::source)->clips = std::move(folded);
    session.timeline->track(TimelineTrackIDs::program)->clips.clear();
    compactSourceTrack(session);
}

engine::ProgramClip TimelinePlanBridge::programClip(const TimelineClip& clip, const std::string& trackID) {
    const bool isText = clip.kind == TimelineClipKinds::text;
    engine::ProgramClip result{
        .type = std::string(isText ? kTextType : kClipType),
        .sourceID = clip.sourceID,
        .trackID = trackID,
        .start = isText ? clip.timelineStart : clip.sourceIn,
        .end = isText ? clip.timelineStart.adding(clip.sourceOut.subtracting(clip.sourceIn)) : clip.sourceOut,
        .timelineStart = clip.timelineStart,
        .label = clip.label};
    if (clip.originSegmentIDs) result.originSegmentIDs = wideIDs(*clip.originSegmentIDs);
    result.audioGain = clip.audioGain;
    result.playbackRate = isText ? 1.0 : ClipSpeed::resolved(clip.playbackRate);
    result.text = textPayload(clip);
    result.transform = clip.transform;
    result.slotID = clip.slotID;
    result.reframeKeyframes = clip.resolvedReframeKeyframes();
    result.matte = clip.matte;
    result.presentationStyle = clip.presentationStyle;
    result.cursorStyle = clip.cursorStyle;
    result.cursorTrackID = clip.cursorTrackID;
    result.zoomRegions = clip.zoomRegions;
    return result;
}

void TimelineMagneticBridge::attachToSpine(TimelineClip& clip, double programSeconds,
                                           const ProjectSession& session) {
    const double t = std::max(programSeconds, 0.0);
    const std::vector<TimelineClip> primary = TimelinePlanBridge::primaryVideoClips(session);
    const TimelineClip* host = nullptr;
    for (const auto& candidate : primary) {
        const double start = candidate.timelineStart.seconds();
        const double end = start + TimelinePlanBridge::programDuration(candidate).seconds();
        if (t >= start - 0.001 && t < end + 0.001) {
            host = &candidate;
            break;
        }
    }
    if (!host) {
        double best = 0.0;
        for (const auto& candidate : primary) {
            const double distance = std::abs(candidate.timelineStart.seconds() - t);
            if (!host || distance < best) {
                host = &candidate;
                best = distance;
            }
        }
    }
    if (!host) {
        clip.connectedToClipID.reset();
        clip.connectedOffset.reset();
        clip.timelineStart = RationalTime::fromSeconds(t, RationalTime::secondsTimescale);
        return;
    }
    clip.connectedToClipID = host->id;
    clip.connectedOffset =
        RationalTime::fromSeconds(t - host->timelineStart.seconds(), RationalTime::secondsTimescale);
    clip.timelineStart = host->timelineStart.adding(*clip.connectedOffset);
}

void TimelineMagneticBridge::resolveConnectedClips(ProjectSession& session) {
    if (!session.timeline) return;
    const std::map<std::string, RationalTime> hostStarts = primaryClipStarts(session);
    for (auto& track : session.timeline->tracks) {
        if (track.kind != TimelineTrackKind::overlay && track.kind != TimelineTrackKind::audio &&
            track.kind != TimelineTrackKind::text) {
            continue;
        }
        for (auto& clip : track.clips) {
            if (!clip.connectedToClipID || !clip.connectedOffset) continue;
            const auto host = hostStarts.find(*clip.connectedToClipID);
            if (host != hostStarts.end()) clip.moveTo(host->second.adding(*clip.connectedOffset));
        }
    }
}

}  // namespace morvane::app
