// Export from the window: the panel's choices and summary, then a run that writes a movie.

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLabel>
#include <QPushButton>

#include "export_dialog.hpp"
#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "studio_fixture.hpp"
#include "studio_window.hpp"

namespace morvane::studio {
namespace {

using testing::StudioWindowTest;
using testing::waitUntil;
namespace fs = std::filesystem;

TEST(ExportDialog, theSummaryAndButtonFollowThePresetAndCodec) {
    app::ProjectSession session;
    app::ProjectPipeline::createUntitledProject(session);
    ExportDialog dialog(session, nullptr);
    EXPECT_EQ(dialog.request(), app::ExportRequest::defaultFor(session));
    EXPECT_EQ(dialog.exportButton()->text(), QStringLiteral("Export MP4…"));
    EXPECT_TRUE(dialog.summaryValue(QStringLiteral("Codec")).startsWith(QStringLiteral("H.264 (MP4)")));

    struct Case {
        const char* preset;
        engine::ExportVideoCodec codec;
        const char* note;  // the project keeps its canvas whatever the preset
        const char* button;
    };
    for (const Case& c : {Case{"youtube_720", engine::ExportVideoCodec::proRes422,
                               "Keeping project format 1920×1080", "Export MOV…"},
                          Case{"youtube_480", engine::ExportVideoCodec::gif,
                               "Keeping project format 1920×1080", "Export GIF…"},
                          Case{"youtube_1080", engine::ExportVideoCodec::hevc, "", "Export MP4…"}}) {
        dialog.presetBox()->setCurrentIndex(dialog.presetBox()->findData(QString::fromUtf8(c.preset)));
        dialog.codecBox()->setCurrentIndex(dialog.codecBox()->findData(static_cast<int>(c.codec)));
        EXPECT_EQ(dialog.request().preset.id, c.preset);
        EXPECT_EQ(dialog.request().videoSettings.codec, c.codec) << c.preset;
        EXPECT_TRUE(dialog.summaryValue(QStringLiteral("Output")).startsWith(QStringLiteral("1920×1080")));
        EXPECT_EQ(dialog.noteLabel()->text(), QString::fromUtf8(c.note)) << c.preset;
        EXPECT_EQ(dialog.exportButton()->text(), QString::fromUtf8(c.button)) << c.preset;
    }
    EXPECT_TRUE(dialog.summaryValue(QStringLiteral("Nothing")).isEmpty());
}

using StudioExportMedia = StudioWindowTest;

TEST_F(StudioExportMedia, exportingAShortCutWritesAMovieOfTheCut) {
    openMessyTalk();
    window->strikeWords({4, 5, 10, 11, 12, 13}, true);  // the fillers and the repeated sentence
    window->acceptCut();
    ASSERT_FALSE(window->session().errorMessage.has_value()) << *window->session().errorMessage;

    app::ExportRequest request = app::ExportRequest::defaultFor(window->session());
    request.preset = *engine::ExportPreset::preset("youtube_480");
    const fs::path movie = folder.path() / "cut.mp4";
    window->exportTo(request, movie);
    ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }, 120.0));
    window->refreshNow();

    const auto& session = window->session();
    ASSERT_FALSE(session.errorMessage.has_value()) << *session.errorMessage;
    EXPECT_EQ(session.statusMessage, app::ProjectPipeline::exportSuccessMessage(movie, false));
    EXPECT_EQ(window->statusLabel()->text().toStdString(), session.statusMessage);
    EXPECT_EQ(morvane::testing::streamCodecs(movie), (std::vector<std::string>{"h264", "aac"}));
    // Ten seconds at 25 frames a second, less about three and a half cut away.
    const int frames = morvane::testing::countVideoFrames(movie);
    EXPECT_GT(frames, 100);
    EXPECT_LT(frames, 200);
}

}  // namespace
}  // namespace morvane::studio
