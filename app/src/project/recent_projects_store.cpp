#include "morvane/app/project/recent_projects_store.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "morvane/engine/support/preferences_store.hpp"

namespace morvane::app {

std::vector<std::string> RecentProjectsStore::stored() const {
    std::vector<std::string> paths;
    const auto value = preferences_.value(key);
    if (!value || !value->is_array()) return paths;
    for (const auto& item : *value) {
        if (item.is_string()) paths.push_back(item.get<std::string>());
    }
    return paths;
}

std::vector<std::filesystem::path> RecentProjectsStore::all() const {
    std::vector<std::filesystem::path> bundles;
    for (const auto& path : stored()) {
        std::error_code error;
        if (std::filesystem::exists(path, error)) bundles.emplace_back(path);
    }
    return bundles;
}

void RecentProjectsStore::noteOpened(const std::filesystem::path& bundle) {
    const std::string path = bundle.lexically_normal().string();
    std::vector<std::string> paths = stored();
    std::erase(paths, path);
    paths.insert(paths.begin(), path);
    if (paths.size() > limit) paths.resize(limit);
    preferences_.set(key, Json(paths));
}

}  // namespace morvane::app
