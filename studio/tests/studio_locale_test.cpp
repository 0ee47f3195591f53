// Qt hands the user's locale to the C library at start-up. Under a German locale the C library writes and
// reads "0,5" for one half: nothing Morvane prints, saves or reads on the way through the main job may
// change with it.

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <clocale>
#include <cstdlib>
#include <regex>

#include "assistant/assistant_panel.hpp"
#include "morvane/app/session/editable_state_snapshot.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "preview/preview_monitor.hpp"
#include "studio_fixture.hpp"

namespace morvane::studio {
namespace {

using testing::waitUntil;

// Builds the German locale into `folder` (no system-wide locale needed) and switches the C library to it.
class GermanLocale {
  public:
    explicit GermanLocale(const std::filesystem::path& folder) {
        const int status = std::system(
            ("localedef -i de_DE -f UTF-8 '" + (folder / "de_DE.UTF-8").string() + "' >/dev/null 2>&1")
                .c_str());
        if (status != 0) return;
        ::setenv("LOCPATH", folder.c_str(), 1);
        active_ = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    }
    ~GermanLocale() {
        std::setlocale(LC_ALL, "C");
        ::unsetenv("LOCPATH");
    }
    GermanLocale(const GermanLocale&) = delete;
    GermanLocale& operator=(const GermanLocale&) = delete;
    [[nodiscard]] bool active() const noexcept { return active_; }

  private:
    bool active_ = false;
};

using StudioLocaleMedia = testing::StudioWindowTest;

TEST_F(StudioLocaleMedia, theMainJobReadsAndWritesTheSameNumbersUnderAGermanLocale) {
    testing::writeMessyTalk(folder.path());  // the test's own media tools print numbers the C locale's way
    const GermanLocale german(folder.path());
    ASSERT_TRUE(german.active()) << "localedef could not build de_DE.UTF-8 (package locales)";
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");

    openMessyTalk();
    const auto& transcript = *window->session().transcript;
    EXPECT_EQ(transcript.words[14].start.formatted(), "5100/600s");  // 8.5 s read from "8.5"-style JSON
    EXPECT_NEAR(*transcript.words[14].confidence, 0.9, 1e-9);
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady(); }));
    window->refreshNow();
    EXPECT_EQ(window->monitor()->timeLabel()->text(), QStringLiteral("0:00.0 / 0:10.0"));

    QTest::mouseClick(window->assistantPanel()->commandButton(intelligence::AssistantCommandID::cleanUp),
                      Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return window->session().isReviewingProposal(); }))
        << window->session().errorMessage.value_or("");
    EXPECT_TRUE(window->session().statusMessage.starts_with("Clean up — kept 3 of 5 segments (0:10 → 0:0"))
        << window->session().statusMessage;

    // The plan and the undo snapshots encode exactly as in the C locale.
    const std::string plan = engine::EditPlanCoding::encode(*window->session().editPlan);
    EXPECT_FALSE(std::regex_search(plan, std::regex("[0-9],[0-9]"))) << plan;
    const auto decoded = engine::EditPlanCoding::decode(plan);
    EXPECT_EQ(decoded, *window->session().editPlan);
    const std::string snapshot = app::EditableStateSnapshot::capture(window->session()).encoded();
    EXPECT_NE(snapshot.find("\"confidence\":0.9"), std::string::npos);

    // Preferences written now read back as written, by another process too.
    StudioPreferences(*preferences).setPreviewVolume(0.5);
    EXPECT_NE(readWholeFile(preferences->path()).find("0.5"), std::string::npos);
    PreferencesStore reread(preferences->path());
    EXPECT_DOUBLE_EQ(StudioPreferences(reread).previewVolume(), 0.5);
}

}  // namespace
}  // namespace morvane::studio
