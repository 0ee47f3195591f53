#pragma once

/// The projects opened or saved last, newest first, kept in the preferences under
/// "morvane.recentProjects" as plain paths.
///
///     RecentProjectsStore recent(preferences);
///     recent.noteOpened("/home/me/Talk.morvane");
///     for (const auto& bundle : recent.all()) ...;   // those still on disk

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <vector>

namespace morvane {
class PreferencesStore;
}

namespace morvane::app {

class RecentProjectsStore {
  public:
    static constexpr std::string_view key = "morvane.recentProjects";
    static constexpr std::size_t limit = 8;

    explicit RecentProjectsStore(PreferencesStore& preferences) : preferences_(preferences) {}

    /// The remembered bundles that still exist, newest first.
    [[nodiscard]] std::vector<std::filesystem::path> all() const;
    /// Puts `bundle` first, dropping an earlier mention of it and anything past the eighth. Throws
    /// `std::filesystem::filesystem_error` when the preferences can't be written.
    void noteOpened(const std::filesystem::path& bundle);

  private:
    [[nodiscard]] std::vector<std::string> stored() const;

    PreferencesStore& preferences_;
};

}  // namespace morvane::app
