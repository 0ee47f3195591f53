#include "morvane/engine/plan/edit_plan_coding.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "morvane/engine/support/files.hpp"

namespace morvane::engine {
namespace {

// `json` with the keys of every object in byte order. Throws for numbers that JSON cannot carry, which
// nlohmann would otherwise write as null and so lose on the way back.
Json canonical(const Json& json, std::string& path) {
    if (json.is_object()) {
        std::vector<const std::string*> keys;
        keys.reserve(json.size());
        for (const auto& item : json.items())
            keys.push_back(&item.key());
        std::sort(keys.begin(), keys.end(), [](const auto* a, const auto* b) { return *a < *b; });
        Json out = Json::object();
        const std::size_t depth = path.size();
        for (const auto* key : keys) {
            path += '/';
            path += *key;
            out[*key] = canonical(json.at(*key), path);
            path.resize(depth);
        }
        return out;
    }
    if (json.is_array()) {
        Json out = Json::array();
        const std::size_t depth = path.size();
        for (std::size_t i = 0; i < json.size(); ++i) {
            path += '/';
            path += std::to_string(i);
            out.push_back(canonical(json[i], path));
            path.resize(depth);
        }
        return out;
    }
    if (json.is_number_float() && !std::isfinite(json.get<double>())) {
        throw EditPlanEncodeError(path + ": cannot write a number that is not finite");
    }
    return json;
}


}  // namespace

std::string EditPlanCoding::encode(const EditPlan& plan) {
    std::string path;
    const Json sorted = canonical(Json(plan), path);
    try {
        return sorted.dump(2, ' ', false, Json::error_handler_t::strict);
    } catch (const Json::type_error& e) {
        throw EditPlanEncodeError(std::string("cannot write a string that is not UTF-8: ") + e.what());
    }
}

EditPlan EditPlanCoding::decode(std::string_view bytes, std::string_view document) {
    const Json json = parseJson(bytes, document);
    const JsonReader reader(json, document);
    return reader.get<EditPlan>();
}

EditPlan EditPlanCoding::resolveSourceURLs(EditPlan plan, const std::filesystem::path& directory) {
    std::error_code ignored;
    std::filesystem::path base = std::filesystem::absolute(directory, ignored);
    if (base.empty()) base = directory;
    for (auto& source : plan.sources) {
        if (source.url.starts_with("file://") || source.url.starts_with("/")) continue;
        source.url = fileURL((base / source.url).lexically_normal());
    }
    return plan;
}

}  // namespace morvane::engine
