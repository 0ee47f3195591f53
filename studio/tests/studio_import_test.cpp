// Dropping media that has no transcript beside it: the window imports it, asks for the language and
// transcribes it.

#include <gtest/gtest.h>

#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <algorithm>

#include "morvane/engine/support/files.hpp"
#include "studio_fixture.hpp"
#include "studio_window.hpp"
#include "transcript/transcript_view.hpp"
#include "transcription_language_dialog.hpp"

namespace morvane::studio {
namespace {

using testing::StudioWindowTest;
using testing::waitUntil;
using testing::whenAsked;
namespace fs = std::filesystem;

class StudioImport : public StudioWindowTest {
  protected:
    bool asked = false;

    // Answers the language question when it comes: `locale`, or a skip when none.
    void answerLanguage(std::optional<QString> locale) {
        whenAsked<TranscriptionLanguageDialog>(
            window.get(), [this, locale](TranscriptionLanguageDialog& dialog) {
                asked = true;
                if (!locale) {
                    dialog.reject();
                    return;
                }
                dialog.languageBox()->setCurrentIndex(dialog.languageBox()->findData(*locale));
                dialog.accept();
            });
    }

    void dropAndWait(const fs::path& file) {
        window->openFiles({file});
        ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }, 120.0));
        window->refreshNow();
    }
};

TEST_F(StudioImport, skippingTheLanguageQuestionKeepsTheImportedRecordingUntranscribed) {
    answerLanguage(std::nullopt);
    dropAndWait(testing::writeToneMovie(folder.path() / "clip.mp4"));

    EXPECT_TRUE(asked);
    const auto& session = window->session();
    ASSERT_EQ(session.mediaBin.size(), 1u);
    EXPECT_EQ(session.primarySourceID, session.mediaBin.front().id);
    EXPECT_FALSE(session.transcript.has_value());
    EXPECT_EQ(session.statusMessage,
              "Skipped transcription for clip.mp4. Click Transcribe when you’re ready.");
    EXPECT_FALSE(window->errorBanner()->isVisible());
    EXPECT_FALSE(window->welcomePage()->isVisible());
    // Nothing remembered: the next drop asks again.
    EXPECT_FALSE(preferences->string("morvane.transcriptionLastLocale").has_value());
}

TEST_F(StudioImport, aFileThatIsNotMediaShowsWhyAndAsksNothing) {
    const fs::path notes = folder.path() / "notes.mp4";
    writeFileAtomically(notes, "not a movie");
    answerLanguage(std::nullopt);
    dropAndWait(notes);

    EXPECT_FALSE(asked);
    EXPECT_TRUE(window->session().mediaBin.empty());
    EXPECT_TRUE(window->errorBanner()->isVisible());
    EXPECT_TRUE(window->errorLabel()->text().startsWith(QStringLiteral("Import failed: ")))
        << window->errorLabel()->text().toStdString();
}

// pocketsphinx over flite speech: slow, hence labelled media.
using StudioImportMedia = StudioImport;

TEST_F(StudioImportMedia, droppingASpokenRecordingTranscribesItInTheChosenLanguage) {
    const fs::path speech = morvane::testing::speak(
        folder.path() / "speech.wav", "Today we look at the export settings. Then we render the movie.");
    const fs::path movie = morvane::testing::makeMovie(folder.path() / "lesson.mp4", 5.0, speech);
    answerLanguage(QStringLiteral("en-US"));
    dropAndWait(movie);

    EXPECT_TRUE(asked);
    const auto& session = window->session();
    ASSERT_TRUE(session.transcript.has_value()) << session.errorMessage.value_or(session.statusMessage);
    EXPECT_EQ(session.transcriptSourceID, session.primarySourceID);
    EXPECT_EQ(session.transcript->locale, "en-US");
    EXPECT_GE(session.transcript->words.size(), 8u);
    ASSERT_TRUE(session.segments.has_value());
    EXPECT_FALSE(session.segments->segments.empty());
    EXPECT_EQ(window->transcriptView()->wordCount(), session.transcript->words.size());
    EXPECT_TRUE(
        window->statusLabel()->text().startsWith(QStringLiteral("Transcription complete for lesson.mp4")))
        << window->statusLabel()->text().toStdString();
    EXPECT_EQ(preferences->string("morvane.transcriptionLastLocale"), "en-US");
}

TEST_F(StudioImportMedia, cancellingTheTranscriptionKeepsTheImportAndSaysSo) {
    const fs::path speech = morvane::testing::speak(
        folder.path() / "speech.wav", "Today we look at the export settings. Then we render the movie.", 3.0);
    const fs::path movie = morvane::testing::makeMovie(folder.path() / "lesson.mp4", 12.0, speech);
    answerLanguage(QStringLiteral("en-US"));
    window->openFiles({movie});
    ASSERT_TRUE(waitUntil([&] {
        const auto& jobs = window->session().activeJobs;
        return std::any_of(jobs.begin(), jobs.end(),
                           [](const auto& job) { return job.kind == app::MediaJobKind::transcribe; });
    }));
    window->cancelWork();
    ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }, 60.0));
    window->refreshNow();

    EXPECT_EQ(window->session().mediaBin.size(), 1u);
    EXPECT_FALSE(window->session().transcript.has_value());
    EXPECT_EQ(window->statusLabel()->text(), QStringLiteral("Transcription cancelled."));
}

}  // namespace
}  // namespace morvane::studio
