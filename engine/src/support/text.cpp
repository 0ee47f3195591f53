#include "morvane/engine/support/text.hpp"

#include <cstddef>
#include <cstdint>

namespace morvane {
namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

// Decodes the code point that starts at `text[at]`, storing its length in bytes.
char32_t decodeAt(std::string_view text, std::size_t at, std::size_t& length) noexcept {
    const auto lead = static_cast<std::uint8_t>(text[at]);
    std::size_t n = 0;
    char32_t c = 0;
    if (lead < 0x80) {
        length = 1;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        n = 2;
        c = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        n = 3;
        c = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        n = 4;
        c = lead & 0x07;
    } else {
        return kInvalid;
    }
    if (at + n > text.size()) return kInvalid;
    for (std::size_t i = 1; i < n; ++i) {
        const auto b = static_cast<std::uint8_t>(text[at + i]);
        if ((b & 0xC0) != 0x80) return kInvalid;
        c = (c << 6) | (b & 0x3F);
    }
    length = n;
    return c;
}

}  // namespace

bool isWhitespaceOrNewline(char32_t c) noexcept {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) noexcept {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t length = 0;
        const char32_t c = decodeAt(text, begin, length);
        if (c == kInvalid || !isWhitespaceOrNewline(c)) break;
        begin += length;
    }
    std::size_t end = text.size();
    while (end > begin) {
        // Step back to the lead byte of the last code point.
        std::size_t start = end - 1;
        while (start > begin && (static_cast<std::uint8_t>(text[start]) & 0xC0) == 0x80)
            --start;
        std::size_t length = 0;
        const char32_t c = decodeAt(text, start, length);
        if (c == kInvalid || start + length != end || !isWhitespaceOrNewline(c)) break;
        end = start;
    }
    return text.substr(begin, end - begin);
}

std::vector<std::string_view> splitAtWhitespace(std::string_view text) {
    std::vector<std::string_view> pieces;
    std::size_t pieceStart = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t length = 1;
        const char32_t c = decodeAt(text, at, length);
        if (c != kInvalid && isWhitespaceOrNewline(c)) {
            if (at > pieceStart) pieces.push_back(text.substr(pieceStart, at - pieceStart));
            pieceStart = at + length;
        }
        at += length;
    }
    if (text.size() > pieceStart) pieces.push_back(text.substr(pieceStart));
    return pieces;
}

}  // namespace morvane
