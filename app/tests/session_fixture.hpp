#pragma once

// A small transcribed talk in a session, for the session and timeline tests.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_consistency.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/testing/printers.hpp"

namespace morvane::app::testing {

inline RationalTime seconds(double s) {
    return RationalTime::fromSeconds(s, 600);
}

/// A plain clip playing `in`–`out` of a source at program time `at` (seconds).
inline TimelineClip clipOf(const char* label, double in, double out, double at,
                           std::string sourceID = "src1") {
    return {.id = makeUUID(),
            .sourceID = std::move(sourceID),
            .label = label,
            .sourceIn = seconds(in),
            .sourceOut = seconds(out),
            .timelineStart = seconds(at)};
}

/// Words as (text, start, end) in seconds, ids from 0.
inline std::vector<intelligence::TranscriptWord> words(
    std::initializer_list<std::tuple<const char*, double, double>> list) {
    std::vector<intelligence::TranscriptWord> out;
    int id = 0;
    for (const auto& [text, start, end] : list)
        out.push_back({id++, text, seconds(start), seconds(end), 0.9, {}});
    return out;
}

/// A session holding `talk.mp4` (20 s), its transcript and segments (one per listed word range), and the
/// storyline bootstrapped with one clip.
inline void loadTalk(ProjectSession& session, std::vector<intelligence::TranscriptWord> transcriptWords,
                     std::vector<std::pair<int, int>> segmentWordRanges) {
    session.mediaURL = "/media/talk.mp4";
    session.mediaDurationSeconds = 20.0;
    session.mediaBin.push_back({.id = "src1",
                                .label = "talk.mp4",
                                .urlPath = "/media/talk.mp4",
                                .kind = MediaBinKind::primary,
                                .durationSeconds = 20.0,
                                .hasVideo = true,
                                .hasAudio = true});
    intelligence::TranscriptDocument transcript{.sourceURL = "/media/talk.mp4",
                                                .locale = "en-US",
                                                .durationSeconds = 20.0,
                                                .words = std::move(transcriptWords)};
    intelligence::SegmentDocument segments{.sourceTranscript = "/media/talk.mp4"};
    for (const auto& [first, last] : segmentWordRanges) {
        const auto& w = transcript.words;
        std::string text;
        for (int i = first; i <= last; ++i)
            text += (text.empty() ? "" : " ") + w[static_cast<std::size_t>(i)].text;
        segments.segments.push_back({static_cast<int>(segments.segments.size()), text,
                                     w[static_cast<std::size_t>(first)].start,
                                     w[static_cast<std::size_t>(last)].end, first, last});
    }
    segments.segmentCount = static_cast<int>(segments.segments.size());
    session.transcript = std::move(transcript);
    session.segments = std::move(segments);
    session.transcriptSourceID = "src1";
    ASSERT_TRUE(TimelinePlanBridge::bootstrapSourceTimeline(session, "src1"));
    session.seedCutItemsFromSegments("transcript");
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
}

/// Ten words in three sentences, with a 1 s pause before the third.
inline void loadShortTalk(ProjectSession& session) {
    loadTalk(session,
             words({{"So", 0.0, 0.3},
                    {"um", 0.4, 0.7},
                    {"today", 0.8, 1.2},
                    {"we", 1.3, 1.5},
                    {"cut.", 1.6, 2.0},
                    {"It", 2.2, 2.4},
                    {"works.", 2.5, 3.0},
                    {"Thanks", 4.0, 4.4},
                    {"for", 4.5, 4.7},
                    {"watching.", 4.8, 5.4}}),
             {{0, 4}, {5, 6}, {7, 9}});
}

/// A talk with a filler-only segment and a line said twice.
inline void loadMessyTalk(ProjectSession& session) {
    loadTalk(session,
             words({{"Welcome", 0.0, 0.5},
                    {"to", 0.6, 0.7},
                    {"the", 0.8, 0.9},
                    {"show.", 1.0, 1.5},
                    {"Um,", 2.0, 2.4},
                    {"uh,", 2.5, 2.9},
                    {"Today", 3.5, 3.9},
                    {"we", 4.0, 4.1},
                    {"cut", 4.2, 4.5},
                    {"video.", 4.6, 5.0},
                    {"Today", 6.0, 6.4},
                    {"we", 6.5, 6.6},
                    {"cut", 6.7, 7.0},
                    {"video.", 7.1, 7.5},
                    {"Thanks", 8.5, 8.9},
                    {"for", 9.0, 9.1},
                    {"watching.", 9.2, 9.8}}),
             {{0, 3}, {4, 5}, {6, 9}, {10, 13}, {14, 16}});
}

inline void expectConsistent(const ProjectSession& session) {
    ASSERT_TRUE(session.timeline.has_value());
    EXPECT_EQ(checkConsistency(*session.timeline), std::vector<std::string>{});
}

}  // namespace morvane::app::testing
