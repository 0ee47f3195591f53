#include <gtest/gtest.h>

#include <algorithm>

#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/transcription_provider.hpp"
#include "morvane/testing/temp_dir.hpp"

using namespace morvane;
using namespace morvane::intelligence;

namespace {

struct Preferences {
    morvane::testing::TempDir dir;
    PreferencesStore store{dir.path() / "preferences.json"};
};

}  // namespace

TEST(TranscriptionLocale, resolvesWithoutPromptByMode) {
    struct Case {
        const char* mode;  // nullptr: unset
        const char* last;
        const char* always;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {nullptr, "fr-FR", "de-DE", std::nullopt},  // unset mode asks every time
        {"askEveryTime", "fr-FR", "de-DE", std::nullopt},
        {"lastSelected", "fr-FR", nullptr, "fr-FR"},
        {"lastSelected", "", nullptr, std::nullopt},  // an empty last choice means asking after all
        {"lastSelected", nullptr, "de-DE", std::nullopt},
        {"always", "fr-FR", "de-DE", "de-DE"},
        {"always", "fr-FR", "", "en-US"},
        {"always", nullptr, nullptr, "en-US"},
        {"sometimes", "fr-FR", "de-DE", std::nullopt},  // an unknown stored mode reads as the default
    };
    for (const Case& c : cases) {
        Preferences prefs;
        if (c.mode) prefs.store.set("morvane.transcriptionPromptMode", c.mode);
        if (c.last) prefs.store.set("morvane.transcriptionLastLocale", c.last);
        if (c.always) prefs.store.set("morvane.transcriptionLocale", c.always);
        EXPECT_EQ(TranscriptionLocale::resolvedLocaleWithoutPrompt(prefs.store), c.expected)
            << (c.mode ? c.mode : "(unset)");
    }
}

TEST(TranscriptionLocale, rememberWritesTheChoiceAndOnlyAlwaysPinsIt) {
    Preferences prefs;
    TranscriptionLocale::remember(prefs.store, "de-DE", TranscriptionPromptMode::lastSelected);
    EXPECT_EQ(prefs.store.string("morvane.transcriptionLastLocale"), "de-DE");
    EXPECT_EQ(prefs.store.string("morvane.transcriptionPromptMode"), "lastSelected");
    EXPECT_FALSE(prefs.store.string("morvane.transcriptionLocale"));

    TranscriptionLocale::remember(prefs.store, "ja-JP", TranscriptionPromptMode::always);
    EXPECT_EQ(prefs.store.string("morvane.transcriptionLocale"), "ja-JP");
    EXPECT_EQ(TranscriptionLocale::resolvedLocaleWithoutPrompt(prefs.store), "ja-JP");

    // The choice outlives the store: a new one on the same file reads it back.
    PreferencesStore reopened(prefs.store.path());
    EXPECT_EQ(TranscriptionLocale::promptMode(reopened), TranscriptionPromptMode::always);
}

TEST(TranscriptionLocale, offersTheFixedListWhenNothingIsSupportedSortedByName) {
    const auto offered = TranscriptionLocale::availableLocales({});
    ASSERT_EQ(offered.size(), 31u);
    EXPECT_TRUE(
        std::is_permutation(offered.begin(), offered.end(), TranscriptionLocale::fixedLocales().begin()));
    for (std::size_t i = 1; i < offered.size(); ++i) {
        EXPECT_LE(localizedCaseInsensitiveCompare(TranscriptionLocale::displayName(offered[i - 1]),
                                                  TranscriptionLocale::displayName(offered[i])),
                  0)
            << offered[i - 1] << " before " << offered[i];
    }
}

TEST(TranscriptionLocale, keepsTheFirstOfDuplicatesAndUsesWhatIsSupported) {
    EXPECT_EQ(TranscriptionLocale::availableLocales({"en-US"}), std::vector<std::string>{"en-US"});
    const auto offered = TranscriptionLocale::availableLocales({"fr-FR", "de-DE", "fr-FR", "en-US"});
    ASSERT_EQ(offered.size(), 3u);
    EXPECT_EQ(std::count(offered.begin(), offered.end(), "fr-FR"), 1);
}

TEST(TranscriptionLocale, namesLocalesForPeople) {
    EXPECT_NE(TranscriptionLocale::displayName("en-US"), "en-US");
    EXPECT_FALSE(TranscriptionLocale::displayName("zh-TW").empty());
}
