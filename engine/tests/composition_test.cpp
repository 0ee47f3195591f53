#include "morvane/engine/composition/composition.hpp"

#include <gtest/gtest.h>

namespace morvane::engine {
namespace {

RationalTime s(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

struct Piece {
    CompositionSource::Kind kind;
    double sourceStart;
    double sourceEnd;
    double start;
    double end;
};

std::vector<Piece> pieces(const CompositionTrack& track) {
    std::vector<Piece> out;
    for (const auto& seg : track.segments)
        out.push_back({seg.source.kind, seg.sourceRange.start.seconds(), seg.sourceRange.end.seconds(),
                       seg.target.start.seconds(), seg.target.end.seconds()});
    return out;
}

void expectPieces(const CompositionTrack& track, const std::vector<Piece>& expected,
                  const std::string& label) {
    const auto actual = pieces(track);
    ASSERT_EQ(actual.size(), expected.size()) << label;
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i].kind, expected[i].kind) << label << " piece " << i;
        EXPECT_NEAR(actual[i].sourceStart, expected[i].sourceStart, 1e-4) << label << " piece " << i;
        EXPECT_NEAR(actual[i].sourceEnd, expected[i].sourceEnd, 1e-4) << label << " piece " << i;
        EXPECT_NEAR(actual[i].start, expected[i].start, 1e-4) << label << " piece " << i;
        EXPECT_NEAR(actual[i].end, expected[i].end, 1e-4) << label << " piece " << i;
    }
}

constexpr auto media = CompositionSource::Kind::media;
constexpr auto empty = CompositionSource::Kind::empty;

TEST(CompositionTrack, insertsAtTheEndPastItWithAGapAndInsidePushingTheRestLater) {
    const auto src = CompositionSource::media("talk.mp4");
    struct Case {
        std::string label;
        std::function<void(CompositionTrack&)> edit;
        std::vector<Piece> expected;
    };
    const std::vector<Case> cases{
        {"at the end",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(10), s(13)}, src, s(0));
             t.insertTimeRange({s(20), s(21)}, src, s(3));
         },
         {{media, 10, 13, 0, 3}, {media, 20, 21, 3, 4}}},
        {"past the end",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(10), s(13)}, src, s(0));
             t.insertTimeRange({s(20), s(21)}, src, s(5));
         },
         {{media, 10, 13, 0, 3}, {empty, 0, 2, 3, 5}, {media, 20, 21, 5, 6}}},
        {"inside",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(10), s(13)}, src, s(0));
             t.insertTimeRange({s(20), s(21)}, src, s(1));
         },
         {{media, 10, 11, 0, 1}, {media, 20, 21, 1, 2}, {media, 11, 13, 2, 4}}},
        {"nothing for an empty range",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(4), s(4)}, src, s(0));
         },
         {}},
        {"scaled to twice its length, what follows moved",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(10), s(12)}, src, s(0));
             t.insertTimeRange({s(30), s(31)}, src, s(2));
             t.scaleTimeRange({s(0), s(2)}, s(4));
         },
         {{media, 10, 12, 0, 4}, {media, 30, 31, 4, 5}}},
        {"scaled across a segment edge",
         [&](CompositionTrack& t) {
             t.insertTimeRange({s(10), s(12)}, src, s(0));
             t.insertTimeRange({s(30), s(32)}, src, s(2));
             t.scaleTimeRange({s(1), s(3)}, s(1));
         },
         {{media, 10, 11, 0, 1}, {media, 11, 12, 1, 1.5}, {media, 30, 31, 1.5, 2}, {media, 31, 32, 2, 3}}},
    };
    for (const auto& c : cases) {
        CompositionTrack track;
        c.edit(track);
        expectPieces(track, c.expected, c.label);
    }
}

TEST(CompositionTrack, mapsProgramTimeToSourceTimeThroughItsSpeed) {
    CompositionTrack track;
    track.insertTimeRange({s(10), s(13)}, CompositionSource::media("a.mp4"), s(0));
    track.insertTimeRange({RationalTime{1001, 30000}, s(5)}, CompositionSource::media("b.mp4"), s(3));
    track.scaleTimeRange({s(3), s(3).adding(s(5).subtracting(RationalTime{1001, 30000}))}, s(2));
    struct Case {
        double time;
        std::optional<double> source;
    };
    for (const Case& c : std::vector<Case>{
             {0.0, 10.0}, {2.999, 12.999}, {3.0, 1001.0 / 30000}, {4.0, 2.5167}, {5.5, {}}, {-1.0, {}}}) {
        const CompositionSegment* segment = track.segment(s(c.time));
        if (!c.source) {
            EXPECT_EQ(segment, nullptr) << c.time;
            continue;
        }
        ASSERT_NE(segment, nullptr) << c.time;
        EXPECT_NEAR(segment->sourceTime(s(c.time)).seconds(), *c.source, 1e-3) << c.time;
    }
    // Unscaled segments map exactly, on the plan's own timescale.
    EXPECT_EQ(track.segments.front().sourceTime(RationalTime{1, 30}).compare(RationalTime{301, 30}), 0);
}

TEST(Composition, givesTracksThePreferredIdWhenFreeAndTheLowestFreeOtherwise) {
    Composition composition;
    EXPECT_EQ(composition.addMutableTrack(CompositionMediaType::video, 1), 1);
    EXPECT_EQ(composition.addMutableTrack(CompositionMediaType::audio, 1), 2);
    EXPECT_EQ(composition.addMutableTrack(CompositionMediaType::video, 7), 7);
    EXPECT_EQ(composition.addMutableTrack(CompositionMediaType::audio), 3);
    EXPECT_EQ(composition.tracksWithMediaType(CompositionMediaType::audio).size(), 2u);
    composition.mutableTrack(7)->insertTimeRange({s(0), s(9)}, CompositionSource::media("x"), s(1));
    EXPECT_EQ(composition.duration().compare(s(10)), 0);
}

}  // namespace
}  // namespace morvane::engine
