// Captions from the kept speech: cue chunking, program times across cuts, and what regenerating keeps.

#include "morvane/app/export/caption_generator.hpp"

#include <gtest/gtest.h>

#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/engine/export/caption_exporter.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using engine::CaptionWordTiming;
using testing::seconds;

std::vector<CaptionWordTiming> timed(std::initializer_list<std::tuple<const char*, double, double>> list) {
    std::vector<CaptionWordTiming> out;
    for (const auto& [text, start, end] : list)
        out.push_back({text, seconds(start), seconds(end)});
    return out;
}

std::vector<std::string> cueTexts(const std::vector<GeneratedCaptionCue>& cues) {
    std::vector<std::string> texts;
    for (const auto& cue : cues)
        texts.push_back(cue.text);
    return texts;
}

TEST(CaptionChunking, closesOnWordCountLengthAndSentenceEnds) {
    struct Case {
        const char* name;
        std::vector<CaptionWordTiming> words;
        std::vector<std::string> expected;
    };
    std::vector<CaptionWordTiming> eleven;
    for (int i = 0; i < 11; ++i)
        eleven.push_back({"w" + std::to_string(i), seconds(i * 0.3), seconds(i * 0.3 + 0.2)});
    const Case cases[] = {
        {"ten words at most", eleven, {"w0 w1 w2 w3 w4 w5 w6 w7 w8 w9", "w10"}},
        {"a stop closes only from the fourth word",
         timed({{"Yes.", 0, 0.3}, {"we", 0.4, 0.5}, {"can", 0.6, 0.7}, {"go.", 0.8, 0.9}, {"Now", 1.0, 1.1}}),
         {"Yes. we can go.", "Now"}},
        {"questions and exclamations too",
         timed(
             {{"is", 0, 0.1}, {"it", 0.2, 0.3}, {"really", 0.4, 0.5}, {"so?", 0.6, 0.7}, {"Wow!", 0.8, 0.9}}),
         {"is it really so?", "Wow!"}},
        {"a word ending over 4 s after the cue began opens a new one",
         timed({{"long", 0, 0.5}, {"pause", 3.0, 4.01}, {"here", 4.2, 4.5}}),
         {"long", "pause here"}},
    };
    for (const auto& c : cases) {
        const auto cues = CaptionGenerator::chunkCaptionCues(c.words, "", seconds(0), seconds(10));
        EXPECT_EQ(cueTexts(cues), c.expected) << c.name;
        for (const auto& cue : cues) {
            EXPECT_EQ(cue.start, cue.words.front().start) << c.name;
            EXPECT_EQ(cue.end, cue.words.back().end) << c.name;
        }
    }
    const auto empty = CaptionGenerator::chunkCaptionCues({}, "Title", seconds(1), seconds(2));
    ASSERT_EQ(empty.size(), 1u);
    EXPECT_EQ(empty[0].text, "Title");
    EXPECT_EQ(empty[0].end, seconds(2));
}

// The text track's clips as (text, program start, program end) in seconds.
std::vector<std::tuple<std::string, double, double>> captions(const ProjectSession& session) {
    std::vector<std::tuple<std::string, double, double>> out;
    for (const auto& clip : session.timeline->clips(TimelineTrackIDs::text)) {
        out.emplace_back(clip.textContent.value_or(""), clip.timelineStart.seconds(),
                         clip.timelineStart.seconds() + clip.sourceDuration().seconds());
    }
    return out;
}

TEST(CaptionGenerator, cuesFollowTheKeptSpeechIntoProgramTime) {
    ProjectSession session;
    testing::loadShortTalk(session);
    // Cut "It works." (2.2–3.0 s) and the pause after it out of the storyline.
    const std::string first = session.timeline->clips(TimelineTrackIDs::source).front().id;
    ASSERT_TRUE(TimelineEditor::splitClip(session, first, 2.1));
    const std::string second = session.timeline->clips(TimelineTrackIDs::source)[1].id;
    ASSERT_TRUE(TimelineEditor::splitClip(session, second, 3.9));
    ASSERT_TRUE(TimelineEditor::deleteClip(session, second));

    EXPECT_EQ(CaptionGenerator::generateCaptions(session, engine::TextStylePreset::caption), 2);
    const auto cues = captions(session);
    ASSERT_EQ(cues.size(), 2u);
    EXPECT_EQ(std::get<0>(cues[0]), "So um today we cut.");
    EXPECT_NEAR(std::get<1>(cues[0]), 0.0, 1e-9);
    EXPECT_NEAR(std::get<2>(cues[0]), 2.0, 1e-9);
    // "Thanks" spoke at 4.0 s of the source; 1.8 s of source before it is gone.
    EXPECT_EQ(std::get<0>(cues[1]), "Thanks for watching.");
    EXPECT_NEAR(std::get<1>(cues[1]), 4.0 - 1.8, 1e-2);
    EXPECT_NEAR(std::get<2>(cues[1]), 5.4 - 1.8, 1e-2);

    // They reach the plan as text and come out as SRT cues in order.
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
    const std::string srt = engine::CaptionExporter::srt(*session.editPlan);
    EXPECT_NE(srt.find("1\n00:00:00,000 --> 00:00:02,000\nSo um today we cut.\n"), std::string::npos) << srt;
    EXPECT_NE(srt.find("2\n00:00:02,200 --> 00:00:03,600\nThanks for watching.\n"), std::string::npos) << srt;
}

TEST(CaptionGenerator, regeneratingReplacesCaptionsAndKeepsTheUsersTitles) {
    ProjectSession session;
    testing::loadShortTalk(session);
    ASSERT_TRUE(TimelineEditor::addTextClip(session, "My title", 0.5, 1.0));
    EXPECT_EQ(CaptionGenerator::generateCaptions(session, engine::TextStylePreset::caption), 3);
    EXPECT_EQ(CaptionGenerator::generateCaptions(session, engine::TextStylePreset::karaoke), 3);
    const auto cues = captions(session);
    ASSERT_EQ(cues.size(), 4u);
    EXPECT_EQ(
        std::count_if(cues.begin(), cues.end(), [](const auto& c) { return std::get<0>(c) == "My title"; }),
        1);
    // Sorted by program time, the title among the cues.
    for (std::size_t i = 1; i < cues.size(); ++i)
        EXPECT_LE(std::get<1>(cues[i - 1]), std::get<1>(cues[i]));

    ProjectSession empty;
    EXPECT_EQ(CaptionGenerator::generateCaptions(empty, engine::TextStylePreset::caption), 0);
}

}  // namespace
}  // namespace morvane::app
