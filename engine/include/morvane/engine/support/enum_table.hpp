#pragma once

/// One table per enumeration between its cases and their persisted or printed text, so that a
/// vocabulary string is written once.
///
///     inline constexpr auto kModeNames = makeEnumTable<Mode>({{Mode::chunk, "chunk"}, {Mode::single,
///     "single"}}); kModeNames.text(Mode::chunk);      // "chunk" kModeNames.parse("single");        //
///     Mode::single kModeNames.parse("other");         // std::nullopt

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "morvane/engine/support/fatal.hpp"

namespace morvane {

template <class Enum, std::size_t N>
class EnumTable {
  public:
    using Entry = std::pair<Enum, std::string_view>;

    constexpr explicit EnumTable(const Entry (&entries)[N]) {
        std::copy(entries, entries + N, entries_.begin());
    }

    /// The text of a case. A case missing from the table is a programming error.
    [[nodiscard]] constexpr std::string_view text(Enum value) const {
        for (const auto& [e, name] : entries_) {
            if (e == value) return name;
        }
        MORVANE_FATAL("enumeration case missing from its text table");
    }

    /// The case whose text is exactly `name`, or nothing.
    [[nodiscard]] constexpr std::optional<Enum> parse(std::string_view name) const {
        for (const auto& [e, text] : entries_) {
            if (text == name) return e;
        }
        return std::nullopt;
    }

    [[nodiscard]] constexpr auto begin() const { return entries_.begin(); }
    [[nodiscard]] constexpr auto end() const { return entries_.end(); }
    [[nodiscard]] constexpr std::size_t size() const { return N; }

  private:
    std::array<Entry, N> entries_{};
};

template <class Enum, std::size_t N>
constexpr EnumTable<Enum, N> makeEnumTable(const std::pair<Enum, std::string_view> (&entries)[N]) {
    return EnumTable<Enum, N>(entries);
}

}  // namespace morvane
