#pragma once

// Small pieces that the engine's hand-written JSON coders share: optional members written only when set,
// enumerations read through their text table, and the single-key objects of enumerations with payloads.

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine::detail {

/// Writes `value` under `key` only when it is set; an absent optional leaves no key at all.
template <class T>
void putIfPresent(Json& json, std::string_view key, const std::optional<T>& value) {
    if (value) json[std::string(key)] = *value;
}

/// `"a", "b", "c"`: the texts a table accepts, for error messages.
template <class Enum, std::size_t N>
std::string acceptedTexts(const EnumTable<Enum, N>& table) {
    std::string out;
    for (const auto& [value, text] : table) {
        if (!out.empty()) out += ", ";
        out += fmt::format("\"{}\"", text);
    }
    return out;
}

/// A string that must be one of `table`'s texts.
template <class Enum, std::size_t N>
Enum readEnum(const JsonReader& reader, const EnumTable<Enum, N>& table) {
    const auto text = reader.get<std::string>();
    if (const auto value = table.parse(text)) return *value;
    reader.fail(fmt::format("expected one of {}, found \"{}\"", acceptedTexts(table), text));
}

/// The case of an enumeration with payloads, stored as an object with one key that names the case and
/// holds its payload object: {"solid":{"_0":...}}. Keys that name no case are ignored, as unknown keys are
/// everywhere else; any number of case keys other than one is refused. The payload must be an object.
template <class Enum, std::size_t N>
std::pair<Enum, std::string_view> readSingleKeyCase(const JsonReader& reader,
                                                    const EnumTable<Enum, N>& table) {
    (void)reader.has("");  // refuses anything that is not an object, with its path
    std::optional<std::pair<Enum, std::string_view>> found;
    int count = 0;
    for (const auto& [value, text] : table) {
        if (reader.value().contains(text)) {
            ++count;
            found = std::pair{value, text};
        }
    }
    if (count != 1) reader.fail("Invalid number of keys found, expected one.");
    const JsonReader payload = reader[found->second];
    (void)payload.has("");
    return *found;
}

/// An enumeration with payloads held as a `std::variant` whose alternatives follow the order of its case
/// table: {"caseName": payload}, with {} for a case without payload.
template <class Variant, class Enum, std::size_t N>
Json writeVariantCase(const Variant& variant, const EnumTable<Enum, N>& table) {
    Json json = Json::object();
    const std::string name(table.text(static_cast<Enum>(variant.index())));
    std::visit(
        [&](const auto& alternative) {
            using T = std::decay_t<decltype(alternative)>;
            if constexpr (std::is_empty_v<T>) {
                json[name] = Json::object();
            } else {
                json[name] = alternative;
            }
        },
        variant);
    return json;
}

template <class Variant, std::size_t... I>
Variant readAlternative(std::size_t index, const JsonReader& payload, std::index_sequence<I...>) {
    Variant out;
    const auto readOne = [&]<std::size_t K>(std::integral_constant<std::size_t, K>) {
        using T = std::variant_alternative_t<K, Variant>;
        if constexpr (std::is_empty_v<T>) {
            out = T{};
        } else {
            out = payload.get<T>();
        }
    };
    ((index == I ? (readOne(std::integral_constant<std::size_t, I>{}), true) : false) || ...);
    return out;
}

/// Reads what `writeVariantCase` writes.
template <class Variant, class Enum, std::size_t N>
Variant readVariantCase(const JsonReader& reader, const EnumTable<Enum, N>& table) {
    static_assert(std::variant_size_v<Variant> == N, "one table entry per alternative");
    const auto which = readSingleKeyCase(reader, table);
    const JsonReader payload = reader[which.second];
    return readAlternative<Variant>(static_cast<std::size_t>(which.first), payload,
                                    std::make_index_sequence<N>{});
}

}  // namespace morvane::engine::detail
