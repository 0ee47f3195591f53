#include "morvane/engine/support/json.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace morvane {
namespace {

std::string_view typeName(const Json& value) {
    switch (value.type()) {
        case Json::value_t::null:
            return "null";
        case Json::value_t::boolean:
            return "a boolean";
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned:
            return "an integer";
        case Json::value_t::number_float:
            return "a number";
        case Json::value_t::string:
            return "a string";
        case Json::value_t::array:
            return "an array";
        case Json::value_t::object:
            return "an object";
        case Json::value_t::binary:
            return "binary data";
        case Json::value_t::discarded:
            return "a discarded value";
    }
    return "an unknown value";
}

std::string composeMessage(const std::string& document, const std::string& path, const std::string& reason) {
    std::string message;
    if (!document.empty()) message += document + ": ";
    if (!path.empty()) message += path + ": ";
    return message + reason;
}

void appendPointerToken(std::string& out, std::string_view token) {
    for (char c : token) {
        if (c == '~') {
            out += "~0";
        } else if (c == '/') {
            out += "~1";
        } else {
            out += c;
        }
    }
}

template <class Integer>
Integer readInteger(const JsonReader& reader) {
    const Json& value = reader.value();
    constexpr auto lo = std::numeric_limits<Integer>::min();
    constexpr auto hi = std::numeric_limits<Integer>::max();
    if (value.is_number_unsigned()) {
        const auto v = value.get<std::uint64_t>();
        if (v > static_cast<std::uint64_t>(hi)) reader.fail("integer out of range");
        return static_cast<Integer>(v);
    }
    if (value.is_number_integer()) {
        const auto v = value.get<std::int64_t>();
        if (v < lo || v > hi) reader.fail("integer out of range");
        return static_cast<Integer>(v);
    }
    if (value.is_number_float()) {
        const double v = value.get<double>();
        // 2^63 is exactly representable; anything at or above it does not fit.
        if (std::isfinite(v) && std::floor(v) == v && v >= static_cast<double>(lo) &&
            v < -static_cast<double>(lo) && v <= static_cast<double>(hi)) {
            return static_cast<Integer>(v);
        }
        reader.fail(std::string("expected an integer, found ") + std::to_string(v));
    }
    reader.fail(std::string("expected an integer, found ") + std::string(typeName(value)));
}

}  // namespace

JsonDecodeError::JsonDecodeError(std::string document, std::string path, std::string reason)
    : std::runtime_error(composeMessage(document, path, reason)),
      document_(std::move(document)),
      path_(std::move(path)),
      reason_(std::move(reason)) {}

JsonReader::JsonReader(const Json& root, std::string_view document) : value_(&root), document_(document) {}

JsonReader::JsonReader(const Json& value, const JsonReader* parent, std::string_view key, std::size_t index)
    : value_(&value), parent_(parent), key_(key), index_(index) {}

const JsonReader& JsonReader::root() const noexcept {
    const JsonReader* r = this;
    while (r->parent_ != nullptr)
        r = r->parent_;
    return *r;
}

JsonReader JsonReader::operator[](std::string_view key) const& {
    if (!value_->is_object())
        fail(std::string("expected an object, found ") + std::string(typeName(*value_)));
    const auto it = value_->find(key);
    JsonReader child(it == value_->end() ? *value_ : *it, this, key, 0);
    if (it == value_->end()) child.fail("required key is missing");
    if (it->is_null()) child.fail("required value is null");
    return child;
}

JsonReader JsonReader::at(std::size_t index) const& {
    const std::size_t n = size();
    if (index >= n) fail("array has no element " + std::to_string(index));
    return JsonReader((*value_)[index], this, {}, index);
}

bool JsonReader::has(std::string_view key) const {
    if (!value_->is_object())
        fail(std::string("expected an object, found ") + std::string(typeName(*value_)));
    const auto it = value_->find(key);
    return it != value_->end() && !it->is_null();
}

std::size_t JsonReader::size() const {
    if (!value_->is_array()) fail(std::string("expected an array, found ") + std::string(typeName(*value_)));
    return value_->size();
}

void JsonReader::appendPath(std::string& out) const {
    if (parent_ == nullptr) return;
    parent_->appendPath(out);
    out += '/';
    if (parent_->value_->is_array()) {
        out += std::to_string(index_);
    } else {
        appendPointerToken(out, key_);
    }
}

std::string JsonReader::path() const {
    std::string out;
    appendPath(out);
    return out.empty() ? "/" : out;
}

void JsonReader::fail(std::string_view reason) const {
    throw JsonDecodeError(std::string(root().document_), path(), std::string(reason));
}

void fromJson(const JsonReader& reader, std::string& out) {
    if (!reader.value().is_string()) {
        reader.fail(std::string("expected a string, found ") + std::string(typeName(reader.value())));
    }
    out = reader.value().get_ref<const std::string&>();
}

void fromJson(const JsonReader& reader, bool& out) {
    if (!reader.value().is_boolean()) {
        reader.fail(std::string("expected a boolean, found ") + std::string(typeName(reader.value())));
    }
    out = reader.value().get<bool>();
}

void fromJson(const JsonReader& reader, double& out) {
    if (!reader.value().is_number()) {
        reader.fail(std::string("expected a number, found ") + std::string(typeName(reader.value())));
    }
    out = reader.value().get<double>();
    // A literal beyond the double range parses as infinity, which no writer could give back.
    if (!std::isfinite(out)) reader.fail("number is out of range");
}

void fromJson(const JsonReader& reader, int& out) {
    out = readInteger<int>(reader);
}

void fromJson(const JsonReader& reader, std::int64_t& out) {
    out = readInteger<std::int64_t>(reader);
}

Json parseJson(std::string_view text, std::string_view document) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& e) {
        // Syntax errors, and numbers too large for a double ("1e400"), which nlohmann reports apart.
        // Drop nlohmann's "[json.exception.parse_error.101] " prefix; keep its line, column and reason.
        std::string reason = e.what();
        if (const auto close = reason.find("] ");
            reason.starts_with("[json.exception") && close != std::string::npos) {
            reason.erase(0, close + 2);
        }
        throw JsonDecodeError(std::string(document), {}, "not valid JSON: " + reason);
    }
}

std::string dumpJson(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json withSortedKeys(const Json& json) {
    if (json.is_array()) {
        Json out = Json::array();
        for (const auto& element : json)
            out.push_back(withSortedKeys(element));
        return out;
    }
    if (!json.is_object()) return json;
    std::vector<std::string> keys;
    for (const auto& item : json.items())
        keys.push_back(item.key());
    std::sort(keys.begin(), keys.end());
    Json out = Json::object();
    for (const auto& key : keys)
        out[key] = withSortedKeys(json[key]);
    return out;
}

}  // namespace morvane
