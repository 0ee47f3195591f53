#include "preview/preview_timing.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "preview/preview_monitor.hpp"

namespace morvane::studio {
namespace {

using PreviewTiming::FramePick;

TEST(PreviewTiming, clockRunsAtItsRateAndStaysInTheProgram) {
    struct Case {
        double anchor, rate, elapsed, duration, expected;
    };
    for (const Case& c : std::vector<Case>{{0.0, 1.0, 2.5, 10.0, 2.5},
                                           {4.0, 2.0, 1.0, 10.0, 6.0},
                                           {4.0, -1.0, 1.5, 10.0, 2.5},
                                           {9.0, 1.0, 5.0, 10.0, 10.0},     // stops at the end
                                           {1.0, -4.0, 1.0, 10.0, 0.0},     // and at the start
                                           {3.0, 1.0, -1.0, 10.0, 3.0}}) {  // a clock never runs back
        EXPECT_DOUBLE_EQ(PreviewTiming::clockPosition(c.anchor, c.rate, c.elapsed, c.duration), c.expected)
            << c.anchor << " " << c.rate << " " << c.elapsed;
    }
}

TEST(PreviewTiming, picksTheLastDueFrameAndCountsTheSkippedOnes) {
    const double frame = 1.0 / 30.0;
    const std::vector<double> queued{1.0, 1.0 + frame, 1.0 + 2 * frame, 1.0 + 3 * frame};
    struct Case {
        double clock;
        std::optional<std::size_t> show;
        std::size_t dropped;
    };
    for (const Case& c : std::vector<Case>{
             {0.9, std::nullopt, 0},    // nothing due yet
             {1.0 - frame / 3, 0, 0},   // due half a frame early
             {1.0 + frame, 1, 1},       // the first came too late to be seen
             {1.0 + 10 * frame, 3, 3},  // far behind: show the newest, drop the rest
         }) {
        const FramePick pick = PreviewTiming::pickFrame(queued, c.clock, frame, false);
        EXPECT_EQ(pick.show, c.show) << c.clock;
        EXPECT_EQ(pick.dropped, c.dropped) << c.clock;
    }
    // Backwards, frames come in falling time.
    const std::vector<double> reversed{2.0, 2.0 - frame, 2.0 - 2 * frame};
    const FramePick back = PreviewTiming::pickFrame(reversed, 2.0 - frame, frame, true);
    EXPECT_EQ(back.show, 1u);
    EXPECT_EQ(back.dropped, 1u);
    EXPECT_FALSE(PreviewTiming::pickFrame({}, 5.0, frame, false).show);
}

TEST(PreviewTiming, frameIndexFindsTheFrameShownAtATime) {
    const double ntsc = 1001.0 / 30000.0;
    EXPECT_EQ(PreviewTiming::frameIndex(0.0, ntsc), 0);
    EXPECT_EQ(PreviewTiming::frameIndex(-3.0, ntsc), 0);
    EXPECT_EQ(PreviewTiming::frameIndex(100 * ntsc, ntsc), 100);  // a frame's own start, despite rounding
    EXPECT_EQ(PreviewTiming::frameIndex(100.5 * ntsc, ntsc), 100);
    EXPECT_EQ(PreviewTiming::frameIndex(1.0, 0.0), 0);
}

TEST(PreviewTiming, encodesMonoSoundForTheDevice) {
    const std::vector<float> mono{0.0f, 0.5f, -1.5f, 1.0f};
    QAudioFormat int16;
    int16.setSampleFormat(QAudioFormat::Int16);
    int16.setChannelCount(2);
    int16.setSampleRate(48000);
    const QByteArray bytes = PreviewTiming::encodeSamples(mono, int16);
    ASSERT_EQ(bytes.size(), 4 * 2 * 2);
    std::vector<std::int16_t> values(8);
    std::memcpy(values.data(), bytes.data(), 16);
    EXPECT_EQ(values,
              (std::vector<std::int16_t>{0, 0, 16384, 16384, -32767, -32767, 32767, 32767}));  // clipped

    QAudioFormat floats;
    floats.setSampleFormat(QAudioFormat::Float);
    floats.setChannelCount(1);
    floats.setSampleRate(44100);
    const QByteArray same = PreviewTiming::encodeSamples(mono, floats);
    ASSERT_EQ(same.size(), 16);
    float second = 0;
    std::memcpy(&second, same.data() + 4, 4);
    EXPECT_EQ(second, 0.5f);

    EXPECT_TRUE(PreviewTiming::encodeSamples(mono, QAudioFormat()).isEmpty());
}

TEST(PreviewTiming, transportTimesAreLocaleFree) {
    EXPECT_EQ(formatTransportTime(0.0), QStringLiteral("0:00.0"));
    EXPECT_EQ(formatTransportTime(62.46), QStringLiteral("1:02.4"));
    EXPECT_EQ(formatTransportTime(3723.0), QStringLiteral("1:02:03.0"));
    EXPECT_EQ(formatTransportTime(-2.0), QStringLiteral("0:00.0"));
}

}  // namespace
}  // namespace morvane::studio
