#include "studio_preferences.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/preferences_store.hpp"

namespace morvane::studio {

namespace {

constexpr auto kAppearanceNames = makeEnumTable<Appearance>({
    {Appearance::system, "system"},
    {Appearance::light, "light"},
    {Appearance::dark, "dark"},
});

}  // namespace

std::string_view appearanceName(Appearance appearance) {
    return kAppearanceNames.text(appearance);
}

void StudioPreferences::write(std::string_view key, const auto& value) {
    try {
        store_.set(key, value);
    } catch (const std::filesystem::filesystem_error& error) {
        std::cerr << "morvane-studio: could not save the preference " << key << ": " << error.what() << "\n";
    }
}

Appearance StudioPreferences::appearance() const {
    const auto text = store_.string(appearanceKey);
    if (!text) return Appearance::system;
    return kAppearanceNames.parse(*text).value_or(Appearance::system);
}

void StudioPreferences::setAppearance(Appearance appearance) {
    write(appearanceKey, appearanceName(appearance));
}

double StudioPreferences::previewVolume() const {
    const double volume = store_.number(previewVolumeKey).value_or(1.0);
    return std::isfinite(volume) ? std::clamp(volume, 0.0, 1.0) : 1.0;
}

void StudioPreferences::setPreviewVolume(double volume) {
    write(previewVolumeKey, std::clamp(volume, 0.0, 1.0));
}

double StudioPreferences::timelineZoom() const {
    const double zoom = store_.number(timelineZoomKey).value_or(defaultZoom);
    return std::isfinite(zoom) ? std::clamp(zoom, minimumZoom, maximumZoom) : defaultZoom;
}

void StudioPreferences::setTimelineZoom(double pixelsPerSecond) {
    write(timelineZoomKey, std::clamp(pixelsPerSecond, minimumZoom, maximumZoom));
}

int StudioPreferences::panelSize(std::string_view key, int fallback) const {
    const double size = store_.number(key).value_or(0.0);
    return size >= 1.0 && size < 100000.0 ? static_cast<int>(std::lround(size)) : fallback;
}

void StudioPreferences::setPanelSize(std::string_view key, int pixels) {
    if (pixels > 0) write(key, static_cast<double>(pixels));
}

bool StudioPreferences::assistantCollapsed() const {
    return store_.boolean(assistantCollapsedKey).value_or(false);
}

void StudioPreferences::setAssistantCollapsed(bool collapsed) {
    write(assistantCollapsedKey, collapsed);
}

bool StudioPreferences::didDismissTranscriptCoach() const {
    return store_.boolean(didDismissTranscriptCoachKey).value_or(false);
}

void StudioPreferences::setDidDismissTranscriptCoach(bool dismissed) {
    write(didDismissTranscriptCoachKey, dismissed);
}

}  // namespace morvane::studio
