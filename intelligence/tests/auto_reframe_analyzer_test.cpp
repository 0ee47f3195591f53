#include "morvane/intelligence/publish/auto_reframe_analyzer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/video_frame.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::intelligence {
namespace {

namespace Analyzer = AutoReframeAnalyzer;
using engine::EditPlanRect;
using engine::PixelSize;
using engine::ProgramClip;
using engine::RationalTime;

constexpr PixelSize kLandscape{1920, 1080};
constexpr PixelSize kPortraitCanvas{1080, 1920};
constexpr double kPortrait = 9.0 / 16.0;

void expectRect(const EditPlanRect& actual, const EditPlanRect& expected, const std::string& what) {
    EXPECT_NEAR(actual.x, expected.x, 1e-9) << what;
    EXPECT_NEAR(actual.y, expected.y, 1e-9) << what;
    EXPECT_NEAR(actual.width, expected.width, 1e-9) << what;
    EXPECT_NEAR(actual.height, expected.height, 1e-9) << what;
}

ProgramClip clipOf(double in, double out, double at, double rate = 1.0) {
    return {.type = "clip",
            .sourceID = "src1",
            .start = RationalTime::fromSeconds(in, 600),
            .end = RationalTime::fromSeconds(out, 600),
            .timelineStart = RationalTime::fromSeconds(at, 600),
            .playbackRate = rate};
}

TEST(AutoReframeAnalyzer, cropsToTheTargetAspectAroundTheFocus) {
    const double portraitWidth = 1080 * kPortrait / 1920;  // 607.5 px of 1920
    struct Case {
        const char* name;
        EditPlanRect focus;
        PixelSize frame;
        double aspect;
        EditPlanRect crop;
    } cases[] = {
        {"centred",
         {0.4, 0.2, 0.2, 0.5},
         kLandscape,
         kPortrait,
         {(960 - 303.75) / 1920, 0, portraitWidth, 1}},
        {"far left gives x exactly 0", {0.0, 0.3, 0.1, 0.4}, kLandscape, kPortrait, {0, 0, portraitWidth, 1}},
        {"far right stops at the edge",
         {0.9, 0.3, 0.1, 0.4},
         kLandscape,
         kPortrait,
         {1 - portraitWidth, 0, portraitWidth, 1}},
        {"a wider target takes the full width and less height",
         {0.4, 0.35, 0.2, 0.3},
         kLandscape,
         2.0,
         {0, (378 - 0.34 * 960) / 1080, 1, 960.0 / 1080}},
        {"a wider target keeps a high head inside",
         {0.4, 0.05, 0.2, 0.3},
         kLandscape,
         2.0,
         {0, 0, 1, 960.0 / 1080}},
        {"a wider target keeps a low head inside",
         {0.4, 0.8, 0.2, 0.2},
         kLandscape,
         2.0,
         {0, 120.0 / 1080, 1, 960.0 / 1080}},
        {"the frame's own aspect is the whole frame",
         {0.7, 0.7, 0.1, 0.1},
         kLandscape,
         16.0 / 9.0,
         {0, 0, 1, 1}},
        {"a crop one pixel short centres the focus's top",
         {0.4, 0.5, 0.2, 0.2},
         {1920, 1081},
         16.0 / 9.0,
         {0, 0.5 / 1081, 1, 1080.0 / 1081}},
    };
    for (const auto& c : cases)
        expectRect(Analyzer::cropRect(c.focus, c.frame, c.aspect), c.crop, c.name);
}

TEST(AutoReframeAnalyzer, padsAndWidensWithinTheFrame) {
    struct Case {
        const char* name;
        EditPlanRect in;
        double scaleX;
        double scaleY;
        EditPlanRect out;
    } padding[] = {
        {"about the centre", {0.4, 0.4, 0.2, 0.2}, 1.5, 1.5, {0.35, 0.35, 0.3, 0.3}},
        {"unchanged at 1", {0.1, 0.2, 0.3, 0.4}, 1.0, 1.0, {0.1, 0.2, 0.3, 0.4}},
        {"clamped at the left", {0.0, 0.4, 0.2, 0.2}, 2.0, 1.0, {0.0, 0.4, 0.3, 0.2}},
        {"clamped at the bottom right", {0.9, 0.9, 0.1, 0.1}, 3.0, 3.0, {0.8, 0.8, 0.2, 0.2}},
        {"a person's padding", {0.3, 0.2, 0.4, 0.5}, 1.12, 1.18, {0.276, 0.155, 0.448, 0.59}},
    };
    for (const auto& c : padding)
        expectRect(Analyzer::padded(c.in, c.scaleX, c.scaleY), c.out, c.name);

    struct Face {
        const char* name;
        EditPlanRect face;
        EditPlanRect body;
    } faces[] = {
        {"head and shoulders", {0.45, 0.2, 0.1, 0.1}, {0.39, 0.2, 0.22, 0.14}},
        {"at the left edge", {0.0, 0.1, 0.1, 0.2}, {0.0, 0.1, 0.16, 0.28}},
        {"at the bottom", {0.45, 0.9, 0.1, 0.1}, {0.39, 0.9, 0.22, 0.1}},
    };
    for (const auto& c : faces)
        expectRect(Analyzer::expandedUpperBody(c.face), c.body, c.name);
}

TEST(AutoReframeAnalyzer, choosesPeopleThenFacesThenSaliencyThenWhatCameBefore) {
    const SubjectDetection bigPerson{{0.1, 0.1, 0.4, 0.8}, 0.9};
    const SubjectDetection smallPerson{{0.6, 0.2, 0.2, 0.5}, 0.9};
    const SubjectDetection unsurePerson{{0.1, 0.1, 0.5, 0.8}, Analyzer::personConfidenceFloor - 0.01};
    const SubjectDetection face{{0.6, 0.2, 0.1, 0.1}, 0.3};
    const SubjectDetection bigFace{{0.2, 0.2, 0.2, 0.2}, 0.3};
    const SubjectDetection faintBlob{{0.0, 0.0, 0.5, 0.5}, 0.2};
    const SubjectDetection strongBlob{{0.7, 0.6, 0.1, 0.1}, 0.7};
    const EditPlanRect previous{0.05, 0.1, 0.2, 0.3};
    struct Case {
        const char* name;
        FrameDetections found;
        std::optional<EditPlanRect> previous;
        EditPlanRect subject;
    } cases[] = {
        {"the largest person, padded",
         {{smallPerson, bigPerson}, {face}, {strongBlob}},
         previous,
         Analyzer::padded(bigPerson.boundingBox, 1.12, 1.18)},
        {"a person under the floor gives way to a face",
         {{unsurePerson}, {face}, {strongBlob}},
         previous,
         Analyzer::expandedUpperBody(face.boundingBox)},
        {"the largest face",
         {{}, {face, bigFace}, {strongBlob}},
         previous,
         Analyzer::expandedUpperBody(bigFace.boundingBox)},
        {"the most confident salient region, not the largest",
         {{}, {}, {faintBlob, strongBlob}},
         previous,
         strongBlob.boundingBox},
        {"nothing keeps the previous subject", {}, previous, previous},
        {"nothing ever found is the centre", {}, std::nullopt, {0.25, 0.25, 0.5, 0.5}},
    };
    for (const auto& c : cases)
        expectRect(Analyzer::subjectRect(c.found, c.previous), c.subject, c.name);
}

// A lookup that answers every sample with a 1920x1080 picture at the asked time, showing what `scene`
// says for that time; it records the times asked.
struct FakeVideo {
    std::function<FrameDetections(double)> scene = [](double) { return FrameDetections{}; };
    std::function<double(double)> shownAt = [](double t) { return t; };
    std::vector<double> asked;

    Analyzer::FrameLookup lookup() {
        return [this](double seconds) -> std::optional<Analyzer::LookedFrame> {
            asked.push_back(seconds);
            return Analyzer::LookedFrame{shownAt(seconds), kLandscape, scene(seconds)};
        };
    }
};

std::vector<double> starts(const std::vector<engine::ReframeKeyframe>& keyframes) {
    std::vector<double> out;
    for (const auto& k : keyframes)
        out.push_back(k.programStart.seconds());
    return out;
}

void expectTimes(const std::vector<double>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i)
        EXPECT_NEAR(actual[i], expected[i], 1e-4) << i;
}

TEST(AutoReframeAnalyzer, samplesAtLeastEveryFewFramesOverProgramTime) {
    struct Case {
        const char* name;
        ProgramClip clip;
        double interval;
        std::vector<double> asked;   // source seconds
        std::vector<double> starts;  // program seconds
    } cases[] = {
        {"0.05 s acts as 0.18 s",
         clipOf(0, 0.9, 0),
         0.05,
         {0, 0.18, 0.36, 0.54, 0.72},
         {0, 0.18, 0.36, 0.54, 0.72}},
        {"a step dividing the length leaves out the end",
         clipOf(0, 1.8, 0),
         0.18,
         {0, 0.18, 0.36, 0.54, 0.72, 0.9, 1.08, 1.26, 1.44, 1.62},
         {0, 0.18, 0.36, 0.54, 0.72, 0.9, 1.08, 1.26, 1.44, 1.62}},
        {"source range and position", clipOf(5, 6.2, 10), 0.5, {5, 5.5, 6}, {10, 10.5, 11}},
        {"twice as fast: two source seconds a step",
         clipOf(0, 4, 10, 2.0),
         0.5,
         {0, 1, 2, 3},
         {10, 10.5, 11, 11.5}},
        {"half speed", clipOf(1, 2, 0, 0.5), 0.5, {1, 1.25, 1.5, 1.75}, {0, 0.5, 1, 1.5}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FakeVideo video;
        const auto keyframes = Analyzer::keyframes(c.clip, kPortraitCanvas, c.interval, video.lookup());
        expectTimes(video.asked, c.asked);
        expectTimes(starts(keyframes), c.starts);
        // The first starts where the clip does and the last ends where it ends, exactly.
        EXPECT_EQ(keyframes.front().programStart, c.clip.timelineStart);
        EXPECT_EQ(keyframes.back().programEnd, c.clip.timelineStart.adding(c.clip.duration()));
        for (std::size_t i = 1; i < keyframes.size(); ++i)
            EXPECT_EQ(keyframes[i - 1].programEnd, keyframes[i].programStart);
    }
}

TEST(AutoReframeAnalyzer, skipsLooseAndBrokenPicturesAndCarriesTheSubjectOn) {
    const SubjectDetection leftFace{{0.02, 0.2, 0.1, 0.15}, 0.4};
    const auto centreCrop = Analyzer::cropRect(Analyzer::centreRect, kLandscape, kPortrait);
    const auto leftCrop =
        Analyzer::cropRect(Analyzer::expandedUpperBody(leftFace.boundingBox), kLandscape, kPortrait);
    ASSERT_EQ(leftCrop.x, 0.0);

    // Samples at 0, 0.5, 1, 1.5 of a 2 s clip.
    FakeVideo video;
    video.scene = [&](double t) {
        return t > 0.4 && t < 0.6 ? FrameDetections{.faces = {leftFace}} : FrameDetections{};
    };
    auto keyframes = Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, video.lookup());
    ASSERT_EQ(keyframes.size(), 4u);
    expectRect(keyframes[0].sourceRect, centreCrop, "an empty first picture crops the centre");
    expectRect(keyframes[1].sourceRect, leftCrop, "the face");
    expectRect(keyframes[2].sourceRect, leftCrop, "nothing found keeps the face's crop");
    expectRect(keyframes[3].sourceRect, leftCrop, "and on");

    // A picture 0.1 s off is used only while nothing was kept; the keyframe before spans its sample.
    video = {};
    video.shownAt = [](double t) { return t < 0.4 || (t > 0.9 && t < 1.1) ? t + 0.1 : t; };
    keyframes = Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, video.lookup());
    expectTimes(starts(keyframes), {0, 0.5, 1.5});
    EXPECT_NEAR(keyframes[1].programEnd.seconds(), 1.5, 1e-9);

    // A picture that can't be decoded costs its sample only.
    video = {};
    auto lookup = video.lookup();
    keyframes = Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, [&](double t) {
        if (t < 0.1) throw engine::EngineError::decodeFailed("damaged");
        return lookup(t);
    });
    expectTimes(starts(keyframes), {0, 1, 1.5});  // the first still starts at the clip's start
    EXPECT_EQ(keyframes.front().programStart.compare(RationalTime::zero), 0);
}

TEST(AutoReframeAnalyzer, failsWhenNoPictureIsUsableAndStopsWhenAsked) {
    const auto nothing = [](double) -> std::optional<Analyzer::LookedFrame> { return std::nullopt; };
    const auto broken = [](double) -> std::optional<Analyzer::LookedFrame> {
        throw engine::EngineError::readerFailed("broken");
    };
    for (const Analyzer::FrameLookup& lookup :
         {Analyzer::FrameLookup(nothing), Analyzer::FrameLookup(broken)}) {
        try {
            (void)Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, lookup);
            ADD_FAILURE();
        } catch (const AutoReframeError& e) {
            EXPECT_EQ(e.kind(), AutoReframeError::Kind::undecodable);
            EXPECT_EQ(std::string(e.what()), Analyzer::undecodableMessage);
        }
    }

    FakeVideo video;
    std::vector<double> shares;
    (void)Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, video.lookup(),
                              [&](double share) { shares.push_back(share); });
    EXPECT_EQ(shares, (std::vector<double>{0.25, 0.5, 0.75, 1.0}));

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW((void)Analyzer::keyframes(clipOf(0, 2, 0), kPortraitCanvas, 0.5, video.lookup(), {},
                                           stop.get_token()),
                 OperationCancelled);
}

engine::RGBAImage squareOn(PixelSize size, int x, int y, int side, std::uint8_t grey) {
    auto image = engine::RGBAImage::filled(size, {grey, grey, grey, 255});
    for (int row = y; row < y + side; ++row)
        for (int column = x; column < x + side; ++column) {
            std::uint8_t* p = image.pixel(column, row);
            p[0] = p[1] = p[2] = 255;
        }
    return image;
}

TEST(SubjectDetectorMedia, theMostSalientRegionIsTheObjectThatStandsOut) {
    struct Case {
        int x;
        int y;
    } cases[] = {{20, 150}, {300, 40}, {560, 280}};
    for (const auto& c : cases) {
        const auto objects = SubjectDetector::salientObjects(squareOn({640, 360}, c.x, c.y, 40, 40));
        ASSERT_FALSE(objects.empty()) << c.x;
        const auto& box = objects.front().boundingBox;
        const double midX = (c.x + 20) / 640.0;
        const double midY = (c.y + 20) / 360.0;
        EXPECT_LE(box.x, midX) << c.x;
        EXPECT_GE(box.x + box.width, midX) << c.x;
        EXPECT_LE(box.y, midY) << c.x;
        EXPECT_GE(box.y + box.height, midY) << c.x;
        EXPECT_LT(box.width, 0.3) << c.x;
        EXPECT_GT(objects.front().confidence, 0.5) << c.x;
    }
    EXPECT_TRUE(
        SubjectDetector::salientObjects(engine::RGBAImage::filled({640, 360}, {90, 90, 90, 255})).empty());
    EXPECT_TRUE(SubjectDetector::salientObjects({}).empty());
}

TEST(SubjectDetectorMedia, loadsTheSystemsCascadesAndFindsNoOneInAnEmptyRoom) {
    SubjectDetector detector;
    ASSERT_TRUE(detector.hasCascades()) << SubjectDetector::defaultCascadeFolder();
    const auto found = detector.detect(squareOn({640, 360}, 300, 150, 40, 40));
    EXPECT_TRUE(found.people.empty());
    EXPECT_TRUE(found.faces.empty());
    EXPECT_FALSE(found.salientObjects.empty());

    SubjectDetector blind("/nonexistent");
    EXPECT_FALSE(blind.hasCascades());
    EXPECT_TRUE(blind.detect(squareOn({640, 360}, 300, 150, 40, 40)).faces.empty());
}

TEST(SubjectDetectorMedia, findsTheFaceInAPhotograph) {
    // OpenCV's own sample photographs come with opencv-doc, which the build does not need: where it is
    // installed, its portrait of a footballer must give a face near his head.
    const std::filesystem::path photo = "/usr/share/doc/opencv-doc/examples/data/messi5.jpg";
    if (!std::filesystem::exists(photo)) GTEST_SKIP() << "opencv-doc is not installed";
    SubjectDetector detector;
    const auto found = detector.detect(engine::readImage(photo));
    // His face is about (0.41, 0.27) to (0.48, 0.38) of the picture.
    const bool onHisFace = std::any_of(found.faces.begin(), found.faces.end(), [](const auto& face) {
        const auto& box = face.boundingBox;
        return box.x < 0.445 && box.x + box.width > 0.445 && box.y < 0.33 && box.y + box.height > 0.33 &&
               box.width < 0.1;
    });
    EXPECT_TRUE(onHisFace);
}

TEST(AutoReframeAnalyzerMedia, theCropFollowsABrightObjectAcrossTheFrame) {
    const morvane::testing::TempDir dir;
    const auto movie = morvane::testing::makeMovingSquareMovie(dir.path() / "square.mp4", 4.0);
    const auto keyframes =
        Analyzer::keyframes(movie, clipOf(0, 4, 0), kPortraitCanvas, Analyzer::defaultSampleInterval);
    ASSERT_EQ(keyframes.size(), 8u);
    const double cropWidth = 360 * kPortrait / 640;
    double lastX = -1;
    for (const auto& keyframe : keyframes) {
        const double t = keyframe.programStart.seconds();
        const double squareMid = ((640 - 60) * t / 4 + 30) / 640;
        const auto& crop = keyframe.sourceRect;
        SCOPED_TRACE(t);
        EXPECT_NEAR(crop.width, cropWidth, 1e-3);
        EXPECT_NEAR(crop.height, 1.0, 1e-9);
        EXPECT_LE(crop.x, squareMid);
        EXPECT_GE(crop.x + crop.width, squareMid);
        EXPECT_GE(crop.x, lastX);
        lastX = crop.x;
    }
    EXPECT_EQ(keyframes.front().sourceRect.x, 0.0);
    EXPECT_GT(keyframes.back().sourceRect.x, 0.55);
}

TEST(AutoReframeAnalyzerMedia, stillsAndUndecodableFilesFailWithTheirMessages) {
    const morvane::testing::TempDir dir;
    const auto still = dir.path() / "still.png";
    engine::writePNG(squareOn({320, 180}, 10, 10, 20, 40), still);
    const auto garbage = dir.path() / "garbage.mp4";
    std::ofstream(garbage) << "this is no movie";
    struct Case {
        std::filesystem::path file;
        std::string_view message;
    } cases[] = {{still, Analyzer::stillImageMessage}, {garbage, Analyzer::undecodableMessage}};
    for (const auto& c : cases) {
        try {
            (void)Analyzer::keyframes(c.file, clipOf(0, 2, 0), kPortraitCanvas);
            ADD_FAILURE() << c.file;
        } catch (const AutoReframeError& e) {
            EXPECT_EQ(std::string(e.what()), c.message);
            EXPECT_EQ(Analyzer::readableOpenError(std::current_exception()), c.message);
        }
    }
    EXPECT_EQ(Analyzer::readableOpenError(std::make_exception_ptr(std::runtime_error("odd"))),
              Analyzer::undecodableMessage);
    EXPECT_THROW((void)Analyzer::keyframes(dir.path() / "gone.mp4", clipOf(0, 2, 0), kPortraitCanvas),
                 engine::EngineError);
}

}  // namespace
}  // namespace morvane::intelligence
