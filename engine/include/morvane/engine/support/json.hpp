#pragma once

/// JSON for every document Morvane reads and writes: nlohmann's insertion-ordered value (keys are written
/// in the order a record lists them), and a reader that says where a document failed.
///
///     Json root = parseJson(text, "transcript.json");
///     JsonReader reader(root, "transcript.json");
///     auto words = reader["words"].get<std::vector<TranscriptWord>>();
///     // on a bad document: JsonDecodeError "transcript.json: /words/3/start/value: expected an integer,
///     found a string"
///
/// A record type opts in with two free functions in its own namespace:
///
///     void to_json(Json& json, const Record& record);            // writing, through nlohmann
///     void fromJson(const JsonReader& reader, Record& record);   // reading, through JsonReader::get
///
/// Public headers include only this file (and so only <nlohmann/json_fwd.hpp>); sources include
/// <nlohmann/json.hpp> for the full value type.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"

namespace morvane {

using Json = nlohmann::ordered_json;

/// A document that is not valid JSON, or whose content does not fit the record read from it.
/// `what()` is "<document>: <path>: <reason>", the path a JSON pointer such as "/words/3/start".
class JsonDecodeError : public std::runtime_error {
  public:
    JsonDecodeError(std::string document, std::string path, std::string reason);

    [[nodiscard]] const std::string& document() const noexcept { return document_; }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }

  private:
    std::string document_;
    std::string path_;
    std::string reason_;
};

/// A cursor over a parsed JSON value that knows its path from the document's root. Children borrow their
/// parent, so take them from a named reader (`reader["words"]`), never from a temporary child
/// (`reader["a"]["b"]` does not compile).
class JsonReader {
  public:
    /// The root of a document; `document` names it in error messages.
    explicit JsonReader(const Json& root, std::string_view document = {});

    /// The member `key`, which must be present and not null.
    /// Throws `JsonDecodeError` when this is not an object or the key is missing.
    [[nodiscard]] JsonReader operator[](std::string_view key) const&;
    JsonReader operator[](std::string_view key) const&& = delete;

    /// Element `index` of an array. Throws `JsonDecodeError` when this is not an array or it is too short.
    [[nodiscard]] JsonReader at(std::size_t index) const&;
    JsonReader at(std::size_t index) const&& = delete;

    /// Whether this object has `key` with a non-null value. Throws when this is not an object.
    [[nodiscard]] bool has(std::string_view key) const;

    /// The number of elements of an array. Throws `JsonDecodeError` when this is not an array.
    [[nodiscard]] std::size_t size() const;

    [[nodiscard]] const Json& value() const noexcept { return *value_; }

    /// The JSON pointer from the root to this value; "/" for the root itself.
    [[nodiscard]] std::string path() const;

    /// Throws `JsonDecodeError` for this value with `reason`.
    [[noreturn]] void fail(std::string_view reason) const;

    /// This value read as `T`, through the `fromJson` overload for `T`.
    template <class T>
    [[nodiscard]] T get() const {
        T out{};
        fromJson(*this, out);
        return out;
    }

    /// The member `key` read as `T`, or nothing when it is absent or null.
    template <class T>
    [[nodiscard]] std::optional<T> optional(std::string_view key) const {
        if (!has(key)) return std::nullopt;
        return (*this)[key].template get<T>();
    }

    /// The member `key` read as `T`, or `fallback` when it is absent or null.
    template <class T>
    [[nodiscard]] T valueOr(std::string_view key, T fallback) const {
        if (!has(key)) return fallback;
        return (*this)[key].template get<T>();
    }

  private:
    JsonReader(const Json& value, const JsonReader* parent, std::string_view key, std::size_t index);
    void appendPath(std::string& out) const;
    const JsonReader& root() const noexcept;

    const Json* value_;
    const JsonReader* parent_ = nullptr;
    std::string_view key_;       // member name, when the parent is an object
    std::size_t index_ = 0;      // element number, when the parent is an array
    std::string_view document_;  // the root's only
};

void fromJson(const JsonReader& reader, std::string& out);
void fromJson(const JsonReader& reader, bool& out);
/// Numbers must be finite: a literal beyond the double range is refused.
void fromJson(const JsonReader& reader, double& out);
/// Integers accept a JSON number with no fractional part within the type's range.
void fromJson(const JsonReader& reader, int& out);
void fromJson(const JsonReader& reader, std::int64_t& out);

template <class T>
void fromJson(const JsonReader& reader, std::vector<T>& out) {
    const std::size_t n = reader.size();
    out.clear();
    out.reserve(n);
    for (std::size_t i = 0; i < n; ++i)
        out.push_back(reader.at(i).template get<T>());
}

/// A string that must be one of `table`'s texts, read as its case. Throws `JsonDecodeError`
/// ("unknown value \"sparkle\"") for any other string.
template <class Enum, std::size_t N>
[[nodiscard]] Enum readCase(const JsonReader& reader, const EnumTable<Enum, N>& table) {
    std::string text;
    fromJson(reader, text);
    const auto value = table.parse(text);
    if (!value) reader.fail("unknown value \"" + text + "\"");
    return *value;
}

/// Parses `text`. Throws `JsonDecodeError` naming `document`, with line and column, when it isn't JSON.
[[nodiscard]] Json parseJson(std::string_view text, std::string_view document);

/// Serialises `json`: compact with `indent` below 0, otherwise pretty with that many blanks. Numbers are
/// written locale-free; invalid UTF-8 in strings is replaced rather than thrown on.
[[nodiscard]] std::string dumpJson(const Json& json, int indent = 2);

/// `json` with the members of every object in byte order of their names, for files that are to diff and
/// merge cleanly whatever order the records list their fields in.
[[nodiscard]] Json withSortedKeys(const Json& json);

}  // namespace morvane
