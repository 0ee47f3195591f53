#pragma once

// Reading and writing single records in tests: compact JSON text in, values out, and the text of a failure.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "morvane/engine/support/json.hpp"

namespace morvane::engine::testing {

/// `value` as compact JSON.
template <class T>
std::string compactJson(const T& value) {
    return dumpJson(Json(value), -1);
}

/// A `T` read from `text`. Throws what the reader throws.
template <class T>
T decodeJson(std::string_view text) {
    const Json json = parseJson(text, "test");
    return JsonReader(json).get<T>();
}

/// The message of the `JsonDecodeError` that reading a `T` from `text` throws, or "(no failure)".
template <class T>
std::string decodeFailure(std::string_view text) {
    try {
        (void)decodeJson<T>(text);
    } catch (const JsonDecodeError& e) {
        return e.what();
    }
    return "(no failure)";
}

/// Writing then reading `value` gives `value` back.
template <class T>
void expectRoundTrip(const T& value) {
    const std::string text = compactJson(value);
    EXPECT_EQ(decodeJson<T>(text), value) << text;
}

}  // namespace morvane::engine::testing
