#pragma once

/// The user's preferences: one JSON object in $XDG_CONFIG_HOME/morvane/preferences.json, keys kept
/// verbatim ("morvane.recentProjects", "morvane.languageModelURL"...), every change saved at once and
/// atomically. A file that can't be read as JSON is set aside as "preferences.json.bad" on the next save
/// rather than lost.
///
///     PreferencesStore prefs;                                     // the user's file
///     auto url = prefs.string("morvane.languageModelURL").value_or("http://127.0.0.1:8080/v1");
///     prefs.set("morvane.timelineZoom", 1.5);

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/support/json.hpp"

namespace morvane {

class PreferencesStore {
  public:
    /// The store at `file`, or at the user's preferences file.
    explicit PreferencesStore(std::filesystem::path file = defaultPath());
    ~PreferencesStore();
    PreferencesStore(const PreferencesStore&) = delete;
    PreferencesStore& operator=(const PreferencesStore&) = delete;

    [[nodiscard]] static std::filesystem::path defaultPath();
    [[nodiscard]] const std::filesystem::path& path() const noexcept { return file_; }

    /// The value of `key`, or nothing when it is absent or of another type.
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const;
    [[nodiscard]] std::optional<double> number(std::string_view key) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    /// The value of `key` as stored, or nothing.
    [[nodiscard]] std::optional<Json> value(std::string_view key) const;

    /// Sets `key` and saves. Throws `std::filesystem::filesystem_error` when the file can't be written;
    /// the value is then still set in memory.
    void set(std::string_view key, const Json& value);
    void set(std::string_view key, std::string_view value);
    void set(std::string_view key, const std::string& value) { set(key, std::string_view(value)); }
    void set(std::string_view key, const char* value) { set(key, std::string_view(value)); }  // not bool
    void set(std::string_view key, double value);
    void set(std::string_view key, bool value);
    /// Removes `key` and saves.
    void remove(std::string_view key);

  private:
    void saveLocked();

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::unique_ptr<Json> values_;  // an object, kept out of line so this header stays light
    bool unreadable_ = false;
};

}  // namespace morvane
