#include "transcription_language_dialog.hpp"

#include <gtest/gtest.h>

#include <QComboBox>

#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::studio {
namespace {

using intelligence::TranscriptionPromptMode;

TEST(TranscriptionLanguageDialog, startsOnTheLastChoiceAndRemembersTheNewOneOnlyWhenAccepted) {
    morvane::testing::TempDir folder;
    PreferencesStore preferences(folder.path() / "preferences.json");
    const std::vector<std::string> locales{"de-DE", "en-GB", "en-US", "fr-FR"};
    {
        TranscriptionLanguageDialog first("talk.mp4", locales, preferences, nullptr);
        EXPECT_EQ(first.chosenLocale(), "en-US");  // nothing chosen before: the fallback
        EXPECT_EQ(first.chosenMode(), TranscriptionPromptMode::askEveryTime);
        EXPECT_EQ(first.languageBox()->count(), 4);
        first.languageBox()->setCurrentIndex(3);
        first.reject();  // skipping leaves the preferences alone
    }
    EXPECT_FALSE(preferences.string("morvane.transcriptionLastLocale").has_value());
    {
        TranscriptionLanguageDialog second("talk.mp4", locales, preferences, nullptr);
        second.languageBox()->setCurrentIndex(second.languageBox()->findData(QStringLiteral("fr-FR")));
        second.modeBox()->setCurrentIndex(
            second.modeBox()->findData(static_cast<int>(TranscriptionPromptMode::always)));
        second.accept();
    }
    EXPECT_EQ(preferences.string("morvane.transcriptionLastLocale"), "fr-FR");
    EXPECT_EQ(preferences.string("morvane.transcriptionPromptMode"), "always");
    EXPECT_EQ(preferences.string("morvane.transcriptionLocale"), "fr-FR");

    const TranscriptionLanguageDialog third("talk.mp4", locales, preferences, nullptr);
    EXPECT_EQ(third.chosenLocale(), "fr-FR");
    EXPECT_EQ(third.chosenMode(), TranscriptionPromptMode::always);
}

}  // namespace
}  // namespace morvane::studio
