// Projects in the window: save, reopen from the recent list, and the question about unsaved changes.

#include <gtest/gtest.h>

#include <QListWidget>
#include <QMessageBox>

#include "morvane/app/timeline/timeline_document.hpp"
#include "studio_fixture.hpp"
#include "studio_window.hpp"
#include "transcription_language_dialog.hpp"
#include "welcome_page.hpp"

namespace morvane::studio {
namespace {

using testing::StudioWindowTest;
using testing::waitUntil;
using testing::whenAsked;
namespace fs = std::filesystem;

// Answers the next unsaved-changes question with `button`.
void answerUnsaved(QObject* owner, QMessageBox::StandardButton button, int* asked) {
    whenAsked<QMessageBox>(owner, [button, asked](QMessageBox& box) {
        ++*asked;
        box.done(button);
    });
}

using StudioProject = StudioWindowTest;

TEST_F(StudioProject, unsavedChangesAreAskedAboutBeforeTheyAreThrownAway) {
    whenAsked<TranscriptionLanguageDialog>(window.get(),
                                           [](TranscriptionLanguageDialog& dialog) { dialog.reject(); });
    window->openFiles({testing::writeToneMovie(folder.path() / "clip.mp4")});
    ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }));
    ASSERT_TRUE(window->session().hasUnsavedChanges());

    int asked = 0;
    answerUnsaved(window.get(), QMessageBox::Cancel, &asked);
    window->newProject();
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(window->session().mediaBin.size(), 1u);

    answerUnsaved(window.get(), QMessageBox::Cancel, &asked);
    EXPECT_FALSE(window->close());
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(window->isVisible());

    answerUnsaved(window.get(), QMessageBox::Discard, &asked);
    window->newProject();
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(window->session().mediaBin.empty());
    // Nothing left to lose: no question.
    EXPECT_TRUE(window->close());
    EXPECT_EQ(asked, 3);
}

using StudioProjectMedia = StudioWindowTest;

TEST_F(StudioProjectMedia, aSavedProjectReopensFromTheRecentListAsItWas) {
    openMessyTalk();
    window->strikeWords({4, 5}, true);
    const app::ProjectSession& before = window->session();
    ASSERT_TRUE(before.hasUnsavedChanges());

    window->saveProjectAs(folder.path() / "Talk");
    ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }));
    window->refreshNow();
    const fs::path bundle = folder.path() / "Talk.morvane";
    EXPECT_TRUE(fs::is_regular_file(bundle / "project.json"));
    EXPECT_EQ(before.projectURL, bundle);
    EXPECT_FALSE(before.hasUnsavedChanges()) << before.errorMessage.value_or(before.statusMessage);
    EXPECT_FALSE(window->windowTitle().contains(QStringLiteral("edited")));

    // A second window over the same preferences offers the project on its welcome page.
    StudioWindow other({.preferences = *preferences});
    other.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&other));
    auto* welcome = static_cast<WelcomePage*>(other.welcomePage());
    ASSERT_EQ(welcome->recentList()->count(), 1);
    emit welcome->recentList()->itemActivated(welcome->recentList()->item(0));
    ASSERT_TRUE(waitUntil([&] { return !other.isWorking() && other.session().projectURL.has_value(); }));

    const app::ProjectSession& after = other.session();
    EXPECT_FALSE(after.errorMessage.has_value()) << *after.errorMessage;
    EXPECT_EQ(after.projectURL, bundle);
    EXPECT_EQ(after.primarySourceID, before.primarySourceID);
    EXPECT_EQ(after.mediaBin.size(), before.mediaBin.size());
    EXPECT_EQ(after.removedWordIDs, (std::set<int>{4, 5}));
    ASSERT_TRUE(after.transcript.has_value());
    EXPECT_EQ(after.transcript->words.size(), before.transcript->words.size());
    ASSERT_TRUE(after.segments.has_value());
    EXPECT_EQ(after.segments->segments.size(), before.segments->segments.size());
    ASSERT_TRUE(after.timeline.has_value());
    for (const std::string_view track : {app::TimelineTrackIDs::source, app::TimelineTrackIDs::program})
        EXPECT_EQ(after.timeline->clips(track).size(), before.timeline->clips(track).size()) << track;
    EXPECT_FALSE(after.hasUnsavedChanges());
}

}  // namespace
}  // namespace morvane::studio
