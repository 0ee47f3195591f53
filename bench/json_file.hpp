#pragma once

// The benchmarks' inputs: a record read whole from a JSON file of the generated talk.

#include <filesystem>
#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::bench {

template <class T>
T readJSON(const std::filesystem::path& path) {
    const Json json = parseJson(readWholeFile(path), path.filename().string());
    return JsonReader(json, path.filename().string()).get<T>();
}

}  // namespace morvane::bench
