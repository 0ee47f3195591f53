#include "morvane/engine/plan/edit_plan_coding.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

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

// Characters kept as they are in the path of a file URL: RFC 3986 unreserved and sub-delims, ":", "@"
// and "/". Everything else, bytes of non-ASCII characters included, is percent-encoded.
bool keptInURLPath(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) != std::string_view::npos;
}

std::string fileURL(const std::filesystem::path& absolute) {
    std::string url = "file://";
    for (const unsigned char c : absolute.generic_string()) {
        if (keptInURLPath(c)) {
            url += static_cast<char>(c);
        } else {
            url += fmt::format("%{:02X}", c);
        }
    }
    return url;
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
