#pragma once

/// The window's own preferences, kept in the user's preferences store beside the rest of Morvane's: the
/// look, the preview's volume, the timeline's zoom, the panels' sizes and what the user has put away.
///
///     StudioPreferences prefs(store);
///     prefs.setPreviewVolume(0.5);
///     int width = prefs.panelSize(StudioPreferences::transcriptWidth, 360);

#include <optional>
#include <string>
#include <string_view>

namespace morvane {
class PreferencesStore;
}

namespace morvane::studio {

/// How the window looks: as the desktop says, or always light or dark.
enum class Appearance { system, light, dark };

class StudioPreferences {
  public:
    static constexpr std::string_view appearanceKey = "morvane.appearance";
    static constexpr std::string_view previewVolumeKey = "morvane.previewVolume";
    static constexpr std::string_view timelineZoomKey = "morvane.timelineZoom";
    static constexpr std::string_view transcriptWidth = "morvane.transcriptWidth";
    static constexpr std::string_view inspectorWidth = "morvane.inspectorWidth";
    static constexpr std::string_view cutListWidth = "morvane.cutListWidth";
    static constexpr std::string_view assistantWidth = "morvane.assistantWidth";
    static constexpr std::string_view timelineHeight = "morvane.timelineHeight";
    static constexpr std::string_view assistantCollapsedKey = "morvane.assistantCollapsed";
    static constexpr std::string_view didDismissTranscriptCoachKey = "morvane.didDismissTranscriptCoach";

    /// The timeline's zoom, in pixels a second, is kept within these.
    static constexpr double minimumZoom = 2.0;
    static constexpr double maximumZoom = 400.0;
    static constexpr double defaultZoom = 24.0;

    explicit StudioPreferences(PreferencesStore& store) : store_(store) {}

    [[nodiscard]] Appearance appearance() const;
    void setAppearance(Appearance appearance);
    /// 0 (silent) to 1; 1 when unset.
    [[nodiscard]] double previewVolume() const;
    void setPreviewVolume(double volume);
    /// Pixels a second, within the limits above; `defaultZoom` when unset.
    [[nodiscard]] double timelineZoom() const;
    void setTimelineZoom(double pixelsPerSecond);
    /// A panel's width (or the timeline's height) in pixels, `fallback` when unset or not above 0.
    [[nodiscard]] int panelSize(std::string_view key, int fallback) const;
    void setPanelSize(std::string_view key, int pixels);
    [[nodiscard]] bool assistantCollapsed() const;
    void setAssistantCollapsed(bool collapsed);
    [[nodiscard]] bool didDismissTranscriptCoach() const;
    void setDidDismissTranscriptCoach(bool dismissed);

  private:
    // A preference that can't be written is not worth interrupting the user for: the window goes on with
    // the value in memory.
    void write(std::string_view key, const auto& value);

    PreferencesStore& store_;
};

/// The stored text of an appearance ("system", "light", "dark").
[[nodiscard]] std::string_view appearanceName(Appearance appearance);

}  // namespace morvane::studio
