#include "transcript/transcript_layout.hpp"

#include <gtest/gtest.h>

namespace morvane::studio {
namespace {

// Every character 10 pixels wide; lines 20 high; 5 between words; margins 10 left, 0 elsewhere.
TranscriptLayout layOut(const std::vector<TranscriptViewWord>& words, std::set<std::size_t> paragraphs,
                        int width) {
    return TranscriptLayout::build(words, paragraphs, width,
                                   [](const std::string& text) { return static_cast<int>(text.size()) * 10; },
                                   {.lineHeight = 20,
                                    .wordSpacing = 5,
                                    .paragraphSpacing = 8,
                                    .leftMargin = 10,
                                    .rightMargin = 0,
                                    .topMargin = 0});
}

std::vector<TranscriptViewWord> words(std::initializer_list<const char*> texts) {
    std::vector<TranscriptViewWord> out;
    int id = 0;
    for (const char* text : texts) {
        out.push_back({id, text, id * 1.0, id * 1.0 + 0.5});
        ++id;
    }
    return out;
}

TEST(TranscriptLayout, wrapsAtTheWidthAndStartsParagraphsAtSegments) {
    // 100 pixels: "aaa bbb" fit (10+30+5+30 = 75), "ccc" doesn't (80+30 > 100).
    const auto layout = layOut(words({"aaa", "bbb", "ccc", "dd", "e"}), {0, 3}, 100);
    const auto& placed = layout.words();
    ASSERT_EQ(placed.size(), 5u);
    EXPECT_EQ(placed[0].box, QRect(10, 0, 30, 20));
    EXPECT_EQ(placed[1].box, QRect(45, 0, 30, 20));
    EXPECT_EQ(placed[2].box, QRect(10, 20, 30, 20));  // wrapped
    EXPECT_EQ(placed[3].box, QRect(10, 48, 20, 20));  // a new paragraph: a line and the spacing down
    EXPECT_EQ(placed[4].box, QRect(35, 48, 10, 20));
    ASSERT_EQ(layout.paragraphs().size(), 2u);
    EXPECT_EQ(layout.paragraphs()[0].top, 0);
    EXPECT_EQ(layout.paragraphs()[0].bottom, 40);
    EXPECT_EQ(layout.paragraphs()[1].firstWord, 3u);
    EXPECT_EQ(layout.height(), 68);
}

TEST(TranscriptLayout, aWordWiderThanTheLineKeepsALineOfItsOwn) {
    const auto layout = layOut(words({"a", "wordwiderthanthis", "b"}), {}, 60);
    EXPECT_EQ(layout.words()[1].box.topLeft(), QPoint(10, 20));
    EXPECT_EQ(layout.words()[2].box.topLeft(), QPoint(10, 40));
    EXPECT_EQ(layOut({}, {}, 100).height(), 0);
}

TEST(TranscriptLayout, findsTheWordUnderThePointerAndTheNearestOneOffTheWords) {
    const auto layout = layOut(words({"aaa", "bbb", "ccc", "dd", "e"}), {0, 3}, 100);
    struct Case {
        QPoint point;
        std::optional<std::size_t> at;
        std::optional<std::size_t> nearest;
    };
    for (const Case& c : std::vector<Case>{
             {{12, 5}, 0, 0},
             {{42, 5}, 0, 0},             // the gap after a word belongs to it
             {{80, 5}, std::nullopt, 1},  // past the end of the line: its last word
             {{15, 25}, 2, 2},
             {{5, 25}, std::nullopt, 2},   // in the margin: the row's first word
             {{50, 43}, std::nullopt, 2},  // between paragraphs: the word before
             {{40, 50}, 4, 4},
             {{200, 500}, std::nullopt, 4},
             {{12, -5}, std::nullopt, 0},
         }) {
        EXPECT_EQ(layout.wordAt(c.point), c.at) << c.point.x() << "," << c.point.y();
        EXPECT_EQ(layout.nearestWord(c.point), c.nearest) << c.point.x() << "," << c.point.y();
    }
}

TEST(TranscriptLayout, theWordPlayingHoldsThroughShortPauses) {
    const auto list = words({"a", "b", "c"});  // 0–0.5, 1–1.5, 2–2.5
    struct Case {
        double seconds;
        std::optional<std::size_t> playing;
    };
    for (const Case& c : std::vector<Case>{{-1.0, std::nullopt},
                                           {0.0, 0},
                                           {0.6, 0},  // just after: still shown
                                           {0.9, std::nullopt},
                                           {1.2, 1},
                                           {2.5, 2},
                                           {9.0, std::nullopt}}) {
        EXPECT_EQ(wordPlayingAt(list, c.seconds), c.playing) << c.seconds;
    }
}

}  // namespace
}  // namespace morvane::studio
