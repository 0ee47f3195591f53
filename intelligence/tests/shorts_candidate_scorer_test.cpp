#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "long_talk.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using testing::documentOf;
using testing::segmentOf;
namespace Scorer = ShortsCandidateScorer;

constexpr SecondsRange kSheet = Scorer::sheetTargetDuration;

std::vector<std::vector<int>> idsOf(const std::vector<ShortsCandidate>& candidates) {
    std::vector<std::vector<int>> ids;
    for (const auto& c : candidates)
        ids.push_back(c.segmentIDs);
    return ids;
}

// Segments of `seconds` each, end to end from 0, the first with `first` as its text.
SegmentDocument evenSegments(int count, double seconds, const char* first = "plain words here.") {
    std::vector<TranscriptSegment> segments;
    for (int i = 0; i < count; ++i) {
        segments.push_back(
            segmentOf(i, i == 0 ? first : "plain words here.", i * seconds, (i + 1) * seconds, i, i));
    }
    return documentOf(std::move(segments));
}

TEST(ShortsCandidateScorer, spotsHooksByLoweredContainment) {
    struct Case {
        const char* text;
        bool hook;
        const char* summary;
    } cases[] = {
        {"Why do exports fail?", true, "Opens with a question"},
        {"is it fast?", true, "Opens with a question"},  // a question without a hook word
        {"HERE IS the trick.", true, "Strong hook phrasing"},
        {"Stopwatch timing, done.", true, "Strong hook phrasing"},  // "stop" inside a longer word counts
        {"So we click the button.", false, "Self-contained segment"},
        {"", false, "Self-contained segment"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Scorer::looksLikeHook(c.text), c.hook) << c.text;
        EXPECT_EQ(Scorer::hookSummary(c.text), c.summary) << c.text;
    }
}

TEST(ShortsCandidateScorer, scoresEachPartOfAWindow) {
    // A plain opening: 0.35, plus 0.05 for a line under 15 words, plus word variety up to 0.12.
    const auto one = [](const char* text) { return std::vector{segmentOf(0, text, 0, 30, 0, 5)}; };
    struct Case {
        const char* what;
        std::vector<TranscriptSegment> window;
        double duration;
        double expected;
    } cases[] = {
        {"all of it", one("Why export twice?"), 30, 0.53 + 0.14 + 0.05 + 0.12 + 0.1},
        {"closing stop", one("so we export it. "), 30, 0.35 + 0.05 + 0.12 + 0.05 + 0.1},
        {"repeated words", one("go go go go"), 30, 0.35 + 0.05 + 0.03 + 0.1},
        {"fourteen words",
         one("one two three four five six seven eight nine ten eleven twelve thirteen fourteen"), 30,
         0.35 + 0.05 + 0.12 + 0.1},
        {"fifteen words",
         one("one two three four five six seven eight nine ten eleven twelve thirteen fourteen fifteen"), 30,
         0.35 + 0.12 + 0.1},
        {"at 25 s", one("a b"), 25, 0.35 + 0.05 + 0.12 + 0.1},
        {"at 45 s", one("a b"), 45, 0.35 + 0.05 + 0.12 + 0.1},
        {"just over 45 s", one("a b"), 45.01, 0.35 + 0.05 + 0.12 + 0.05},
        {"at 18 s", one("a b"), 18, 0.35 + 0.05 + 0.12 + 0.05},
        {"at 52 s", one("a b"), 52, 0.35 + 0.05 + 0.12 + 0.05},
        {"just under 18 s", one("a b"), 17.99, 0.35 + 0.05 + 0.12},
        {"just over 52 s", one("a b"), 52.01, 0.35 + 0.05 + 0.12},
        // Only the first line opens; the ending is the last line that has any text; words count across lines.
        {"two lines",
         {segmentOf(0, "we start.", 0, 10, 0, 1), segmentOf(1, "Why? We Start", 10, 20, 2, 4),
          segmentOf(2, " \n", 20, 30, 5, 5)},
         30,
         0.35 + 0.14 + 0.05 + 0.12 * 4 / 5 + 0.1},
    };
    for (const auto& c : cases) {
        EXPECT_NEAR(Scorer::scoreWindow(c.window, nullptr, c.duration), c.expected, 1e-12) << c.what;
    }
}

TEST(ShortsCandidateScorer, fillersInsideTheWindowLowerItsScoreUpToAFifth) {
    testing::TranscriptBuilder builder;
    builder.say("um so uh we um like export er it ah now um uh um like");  // 10 hits among words 0-14
    const TranscriptDocument transcript = builder.build();
    ASSERT_EQ(transcript.disfluencyHits.size(), 10u);
    const std::vector window{segmentOf(0, "a b", 0, 30, 1, 3)};  // words 1-3: "so uh we" holds one hit
    const double clean = Scorer::scoreWindow(window, nullptr, 30);
    EXPECT_NEAR(Scorer::scoreWindow(window, &transcript, 30), clean - 0.03, 1e-12);
    const std::vector wide{segmentOf(0, "a b", 0, 30, 0, 14)};
    EXPECT_NEAR(Scorer::scoreWindow(wide, &transcript, 30), clean - 0.2, 1e-12);
    const std::vector none{segmentOf(0, "a b", 0, 30, 5, 4)};  // a segment without words
    EXPECT_NEAR(Scorer::scoreWindow(none, &transcript, 30), clean, 1e-12);
}

TEST(ShortsCandidateScorer, titlesCollapseWhiteSpaceAndCutLongTextAtSixtyNineCharacters) {
    const auto titleOf = [](std::vector<const char*> texts) {
        std::vector<TranscriptSegment> window;
        for (const char* text : texts)
            window.push_back(segmentOf(static_cast<int>(window.size()), text, 0, 1));
        return Scorer::makeTitle(window);
    };
    EXPECT_EQ(titleOf({"  Here's\tthe \n trick. ", "It works.", "Third line."}),
              "Here's the trick. It works.");
    EXPECT_EQ(titleOf({"Alone"}), "Alone");
    EXPECT_EQ(titleOf({}), "");
    const std::string seventyTwo(72, 'x');
    EXPECT_EQ(titleOf({seventyTwo.c_str()}), seventyTwo);
    // 73 characters whose 69th is a blank: cut, trimmed, then the ellipsis.
    const std::string long73 = std::string(68, 'a') + " " + std::string(4, 'b');
    EXPECT_EQ(titleOf({long73.c_str()}), std::string(68, 'a') + "…");
    // Characters, not bytes: 80 accented letters written with combining accents.
    std::string accented;
    for (int i = 0; i < 80; ++i)
        accented += "e\u0301";
    const std::string title = titleOf({accented.c_str()});
    EXPECT_EQ(characterCount(title), 70u);
    EXPECT_EQ(title.substr(0, 69 * 3), accented.substr(0, 69 * 3));
}

TEST(ShortsCandidateScorer, windowsMustFitTheRangeAndMayRunToEitherEnd) {
    // One segment of 20 s fits; one of 60 s doesn't.
    const auto twenty = Scorer::propose(documentOf({segmentOf(0, "Why now?", 2, 22, 0, 1)}), nullptr,
                                        std::nullopt, 5, kSheet);
    ASSERT_EQ(twenty.size(), 1u);
    EXPECT_EQ(twenty[0].segmentIDs, std::vector{0});
    EXPECT_EQ(twenty[0].sourceStart, testing::TranscriptBuilder::at(2));
    EXPECT_EQ(twenty[0].sourceEnd, testing::TranscriptBuilder::at(22));
    EXPECT_DOUBLE_EQ(twenty[0].durationSeconds(), 20.0);
    EXPECT_EQ(twenty[0].title, "Why now?");
    EXPECT_EQ(twenty[0].hookSummary, "Opens with a question");
    EXPECT_TRUE(isUUID(twenty[0].id));
    EXPECT_TRUE(
        Scorer::propose(documentOf({segmentOf(0, "Why now?", 0, 60)}), nullptr, std::nullopt, 5, kSheet)
            .empty());

    // Nothing to choose from.
    const auto three = evenSegments(3, 10);
    EXPECT_TRUE(Scorer::propose(documentOf({}), nullptr, std::nullopt, 5, kSheet).empty());
    EXPECT_TRUE(Scorer::propose(three, nullptr, std::set<int>{}, 5, kSheet).empty());
    EXPECT_TRUE(Scorer::propose(three, nullptr, std::set<int>{7, 8}, 5, kSheet).empty());
    EXPECT_TRUE(Scorer::propose(three, nullptr, std::nullopt, 0, kSheet).empty());

    // The window that opens with a question runs to the last segment.
    auto tail = evenSegments(4, 10);
    tail.segments[2].text = "Why stop there?";
    tail.segments[3].text = "Because it ends.";
    const auto atEnd = Scorer::propose(tail, nullptr, std::nullopt, 1, {15, 20});
    EXPECT_EQ(idsOf(atEnd), (std::vector<std::vector<int>>{{2, 3}}));
    EXPECT_EQ(atEnd[0].title, "Why stop there? Because it ends.");
}

TEST(ShortsCandidateScorer, keptSegmentsAloneFormWindowsAndTheGapsCount) {
    // Segments of 10 s; without the second and third, the first and fourth span 40 s.
    auto segments = evenSegments(5, 10, "Here's how.");
    const auto kept = Scorer::propose(segments, nullptr, std::set<int>{0, 3}, 5, {35, 45});
    EXPECT_EQ(idsOf(kept), (std::vector<std::vector<int>>{{0, 3}}));
    EXPECT_DOUBLE_EQ(kept[0].durationSeconds(), 40.0);
}

TEST(ShortsCandidateScorer, nearScoresPreferTheLongerWindowAndOverlapsAreDropped) {
    // From one start, windows of 30 s and 35 s. With equal scores the longer leads and the shorter, which
    // lies wholly inside it, is dropped.
    const auto pair = [](const char* second) {
        return documentOf({segmentOf(0, "Here's why.", 0, 30, 0, 1), segmentOf(1, second, 30, 35, 2, 3)});
    };
    EXPECT_EQ(idsOf(Scorer::propose(pair("Really fast."), nullptr, std::nullopt, 5, kSheet)),
              (std::vector<std::vector<int>>{{0, 1}}));
    // Without the closing full stop the longer one scores 0.05 less, and the shorter one wins.
    EXPECT_EQ(idsOf(Scorer::propose(pair("Really fast"), nullptr, std::nullopt, 5, kSheet)),
              (std::vector<std::vector<int>>{{0}}));

    // Segments of 1 s, windows of exactly 20 s. The hooks at 0, 8 and 10 open the best windows: the one at
    // 8 overlaps the first by 60 % and is dropped; the one at 10 overlaps it by 50 % and stays.
    auto ones = evenSegments(40, 1, "Why?");
    ones.segments[8].text = "Here's how.";
    ones.segments[10].text = "Here's how.";
    const auto chosen = Scorer::propose(ones, nullptr, std::nullopt, 2, {20, 20});
    ASSERT_EQ(chosen.size(), 2u);
    EXPECT_EQ(chosen[0].segmentIDs.front(), 0);
    EXPECT_EQ(chosen[1].segmentIDs.front(), 10);
    EXPECT_EQ(chosen[1].segmentIDs.size(), 20u);
}

TEST(ShortsCandidateScorer, fillersSteerTheChoiceAwayFromAMumbledPassage) {
    testing::TranscriptBuilder builder;
    builder.say("um uh um uh um uh").say("clear words only");  // words 0-5 are fillers
    const TranscriptDocument transcript = builder.build();
    const auto segments =
        documentOf({segmentOf(0, "Here's why.", 0, 20, 0, 5), segmentOf(1, "Here's why.", 30, 50, 6, 8)});
    EXPECT_EQ(idsOf(Scorer::propose(segments, nullptr, std::nullopt, 1, kSheet)),
              (std::vector<std::vector<int>>{{0}}));
    EXPECT_EQ(idsOf(Scorer::propose(segments, &transcript, std::nullopt, 1, kSheet)),
              (std::vector<std::vector<int>>{{1}}));
}

TEST(ShortsCandidateScorer, theTopPassageOfARealTalkOpensWithAHookAndStandsAlone) {
    const auto& [transcript, segments] = testing::longTalk();
    const auto candidates =
        Scorer::propose(segments, &transcript, std::nullopt, Scorer::sheetMaxCandidates, kSheet);
    ASSERT_EQ(candidates.size(), 5u);
    for (std::size_t i = 1; i < candidates.size(); ++i) {
        EXPECT_GE(candidates[i - 1].score + 0.01, candidates[i].score);
    }
    for (const auto& candidate : candidates) {
        EXPECT_GE(candidate.durationSeconds(), kSheet.lower);
        EXPECT_LE(candidate.durationSeconds(), kSheet.upper);
    }

    const auto& top = candidates.front();
    const auto at = [&](int id) -> const TranscriptSegment& {
        return segments.segments[static_cast<std::size_t>(id)];
    };
    const auto endsSentence = [](std::string_view text) {
        const auto trimmed = trimWhitespaceAndNewlines(text);
        return !trimmed.empty() && std::string_view(".?!").find(trimmed.back()) != std::string_view::npos;
    };
    const TranscriptSegment& opening = at(top.segmentIDs.front());
    EXPECT_TRUE(Scorer::looksLikeHook(opening.text)) << opening.text;
    EXPECT_TRUE(opening.id == 0 || endsSentence(at(opening.id - 1).text)) << opening.text;
    EXPECT_TRUE(endsSentence(at(top.segmentIDs.back()).text)) << at(top.segmentIDs.back()).text;
    EXPECT_TRUE(top.title.starts_with(opening.text)) << top.title;
}

TEST(ShortsCandidate, roundTripsThroughJsonAndRefusesABadID) {
    ShortsCandidate candidate{.id = makeUUID(),
                              .title = "Why now?",
                              .segmentIDs = {3, 4},
                              .sourceStart = {1001, 30000},
                              .sourceEnd = {90, 1},
                              .score = 0.75,
                              .hookSummary = "Opens with a question"};
    const Json json = candidate;
    EXPECT_EQ(JsonReader(json, "short.json").get<ShortsCandidate>(), candidate);
    Json bad = json;
    bad["id"] = "short-1";
    try {
        (void)JsonReader(bad, "short.json").get<ShortsCandidate>();
        FAIL();
    } catch (const JsonDecodeError& e) {
        EXPECT_NE(std::string(e.what()).find("/id"), std::string::npos) << e.what();
    }
    EXPECT_DOUBLE_EQ((ShortsCandidate{.sourceStart = {5, 1}, .sourceEnd = {4, 1}}.durationSeconds()), 0.0);
}

}  // namespace
}  // namespace morvane::intelligence
