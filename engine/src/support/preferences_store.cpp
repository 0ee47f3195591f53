#include "morvane/engine/support/preferences_store.hpp"

#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"

namespace morvane {

PreferencesStore::PreferencesStore(std::filesystem::path file)
    : file_(std::move(file)), values_(std::make_unique<Json>(Json::object())) {
    std::error_code error;
    if (!std::filesystem::exists(file_, error)) return;
    try {
        Json loaded = parseJson(readWholeFile(file_), file_.string());
        if (loaded.is_object()) {
            *values_ = std::move(loaded);
        } else {
            unreadable_ = true;
        }
    } catch (const std::exception&) {
        unreadable_ = true;
    }
}

PreferencesStore::~PreferencesStore() = default;

std::filesystem::path PreferencesStore::defaultPath() {
    return configDirectory() / "preferences.json";
}

std::optional<Json> PreferencesStore::value(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const auto it = values_->find(key);
    if (it == values_->end()) return std::nullopt;
    return *it;
}

std::optional<std::string> PreferencesStore::string(std::string_view key) const {
    const auto v = value(key);
    if (!v || !v->is_string()) return std::nullopt;
    return v->get<std::string>();
}

std::optional<double> PreferencesStore::number(std::string_view key) const {
    const auto v = value(key);
    if (!v || !v->is_number()) return std::nullopt;
    return v->get<double>();
}

std::optional<bool> PreferencesStore::boolean(std::string_view key) const {
    const auto v = value(key);
    if (!v || !v->is_boolean()) return std::nullopt;
    return v->get<bool>();
}

void PreferencesStore::set(std::string_view key, const Json& newValue) {
    const std::lock_guard lock(mutex_);
    (*values_)[std::string(key)] = newValue;
    saveLocked();
}

void PreferencesStore::set(std::string_view key, std::string_view newValue) {
    set(key, Json(newValue));
}
void PreferencesStore::set(std::string_view key, double newValue) {
    set(key, Json(newValue));
}
void PreferencesStore::set(std::string_view key, bool newValue) {
    set(key, Json(newValue));
}

void PreferencesStore::remove(std::string_view key) {
    const std::lock_guard lock(mutex_);
    if (const auto it = values_->find(key); it != values_->end()) {
        values_->erase(it);
        saveLocked();
    }
}

void PreferencesStore::saveLocked() {
    if (unreadable_) {
        std::error_code ignored;
        std::filesystem::rename(file_, std::filesystem::path(file_).concat(".bad"), ignored);
        unreadable_ = false;
    }
    writeFileAtomically(file_, dumpJson(*values_, 2) + "\n");
}

}  // namespace morvane
