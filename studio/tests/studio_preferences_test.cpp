#include "studio_preferences.hpp"

#include <gtest/gtest.h>

#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::studio {
namespace {

TEST(StudioPreferences, defaultsLimitsAndRoundTripsThroughTheFile) {
    morvane::testing::TempDir folder;
    const auto file = folder.path() / "preferences.json";
    {
        PreferencesStore store(file);
        StudioPreferences prefs(store);
        EXPECT_EQ(prefs.appearance(), Appearance::system);
        EXPECT_DOUBLE_EQ(prefs.previewVolume(), 1.0);
        EXPECT_DOUBLE_EQ(prefs.timelineZoom(), StudioPreferences::defaultZoom);
        EXPECT_EQ(prefs.panelSize(StudioPreferences::transcriptWidth, 360), 360);
        EXPECT_FALSE(prefs.assistantCollapsed());
        EXPECT_FALSE(prefs.didDismissTranscriptCoach());

        prefs.setAppearance(Appearance::dark);
        prefs.setPreviewVolume(1.7);  // kept within 0..1
        prefs.setTimelineZoom(0.01);
        prefs.setPanelSize(StudioPreferences::assistantWidth, 420);
        prefs.setPanelSize(StudioPreferences::timelineHeight, 0);  // ignored
        prefs.setAssistantCollapsed(true);
        prefs.setDidDismissTranscriptCoach(true);
    }
    PreferencesStore store(file);
    const StudioPreferences prefs(store);
    EXPECT_EQ(store.string("morvane.appearance"), "dark");
    EXPECT_EQ(prefs.appearance(), Appearance::dark);
    EXPECT_DOUBLE_EQ(prefs.previewVolume(), 1.0);
    EXPECT_DOUBLE_EQ(prefs.timelineZoom(), StudioPreferences::minimumZoom);
    EXPECT_EQ(prefs.panelSize(StudioPreferences::assistantWidth, 1), 420);
    EXPECT_EQ(prefs.panelSize(StudioPreferences::timelineHeight, 230), 230);
    EXPECT_TRUE(prefs.assistantCollapsed());
    EXPECT_EQ(store.boolean("morvane.didDismissTranscriptCoach"), true);
}

TEST(StudioPreferences, valuesWrittenByHandThatMakeNoSenseFallBack) {
    morvane::testing::TempDir folder;
    PreferencesStore store(folder.path() / "preferences.json");
    store.set("morvane.appearance", "purple");
    store.set("morvane.previewVolume", "loud");
    store.set("morvane.timelineZoom", 1e9);
    store.set("morvane.transcriptWidth", -20.0);
    const StudioPreferences prefs(store);
    EXPECT_EQ(prefs.appearance(), Appearance::system);
    EXPECT_DOUBLE_EQ(prefs.previewVolume(), 1.0);
    EXPECT_DOUBLE_EQ(prefs.timelineZoom(), StudioPreferences::maximumZoom);
    EXPECT_EQ(prefs.panelSize(StudioPreferences::transcriptWidth, 300), 300);
}

}  // namespace
}  // namespace morvane::studio
