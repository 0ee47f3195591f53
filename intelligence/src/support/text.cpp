#include "morvane/intelligence/support/text.hpp"

#include <unicode/brkiter.h>
#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>

namespace morvane::intelligence {
namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isPunctuation(UChar32 c) {
    return (U_GET_GC_MASK(c) & U_GC_P_MASK) != 0;
}

}  // namespace

std::string lowercased(std::string_view text) {
    if (isAscii(text)) {
        std::string out(text);
        for (char& c : out) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
        return out;
    }
    auto unicode =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    unicode.toLower(icu::Locale::getRoot());
    std::string out;
    unicode.toUTF8String(out);
    return out;
}

std::string_view trimmingPunctuation(std::string_view text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    int32_t begin = 0;
    while (begin < length) {
        int32_t next = begin;
        UChar32 c = 0;
        U8_NEXT(s, next, length, c);
        if (c < 0 || !isPunctuation(c)) break;
        begin = next;
    }
    int32_t end = length;
    while (end > begin) {
        int32_t previous = end;
        UChar32 c = 0;
        U8_PREV(s, begin, previous, c);
        if (c < 0 || !isPunctuation(c)) break;
        end = previous;
    }
    return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

bool isAlphanumeric(char32_t c) noexcept {
    return (U_GET_GC_MASK(static_cast<UChar32>(c)) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

bool containsAlphanumeric(std::string_view text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        UChar32 c = 0;
        U8_NEXT(s, i, length, c);
        if (c >= 0 && isAlphanumeric(static_cast<char32_t>(c))) return true;
    }
    return false;
}

std::size_t characterCount(std::string_view text) {
    if (isAscii(text)) {
        // In ASCII only CR LF joins two code points into one character.
        std::size_t count = text.size();
        for (std::size_t i = 1; i < text.size(); ++i) {
            if (text[i - 1] == '\r' && text[i] == '\n') --count;
        }
        return count;
    }
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        return std::unique_ptr<icu::BreakIterator>(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    }();
    const auto unicode =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    if (!iterator) return static_cast<std::size_t>(unicode.countChar32());
    iterator->setText(unicode);
    std::size_t count = 0;
    iterator->first();
    while (iterator->next() != icu::BreakIterator::DONE)
        ++count;
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    if (isAscii(text)) {
        // CR LF is one character.
        std::size_t i = 0;
        for (std::size_t taken = 0; i < text.size() && taken < count; ++taken) {
            i += (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
        }
        return text.substr(0, i);
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> iterator(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    UText* utext = utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
    if (!iterator || U_FAILURE(status)) {
        if (utext) utext_close(utext);
        return text;
    }
    iterator->setText(utext, status);
    int32_t end = iterator->first();
    for (std::size_t taken = 0; taken < count; ++taken) {
        const int32_t next = iterator->next();
        if (next == icu::BreakIterator::DONE) break;
        end = next;
    }
    utext_close(utext);
    return text.substr(0, static_cast<std::size_t>(end));  // UTF-8 UText indexes are byte offsets
}

int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b) {
    thread_local std::unique_ptr<icu::Collator> collator = [] {
        // The C and POSIX locales map to en_US_POSIX, whose collation is code point order (all capitals
        // first); people running Morvane there still expect dictionary order.
        icu::Locale locale = icu::Locale::getDefault();
        if (std::string_view(locale.getName()) == "en_US_POSIX") locale = icu::Locale::getRoot();
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Collator> c(icu::Collator::createInstance(locale, status));
        if (c) c->setStrength(icu::Collator::SECONDARY);  // ignore case, keep accents
        return c;
    }();
    if (!collator) {
        const std::string la = lowercased(a);
        const std::string lb = lowercased(b);
        return la.compare(lb) < 0 ? -1 : (la == lb ? 0 : 1);
    }
    UErrorCode status = U_ZERO_ERROR;
    const auto result =
        collator->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                              icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
    return result == UCOL_LESS ? -1 : (result == UCOL_EQUAL ? 0 : 1);
}

std::vector<std::string_view> whitespaceSeparatedWords(std::string_view text) {
    std::vector<std::string_view> words;
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    int32_t wordStart = -1;
    for (int32_t i = 0; i < length;) {
        const int32_t at = i;
        UChar32 c = 0;
        U8_NEXT(s, i, length, c);
        const bool blank = c >= 0 && isWhitespaceOrNewline(static_cast<char32_t>(c));
        if (blank && wordStart >= 0) {
            words.push_back(
                text.substr(static_cast<std::size_t>(wordStart), static_cast<std::size_t>(at - wordStart)));
            wordStart = -1;
        } else if (!blank && wordStart < 0) {
            wordStart = at;
        }
    }
    if (wordStart >= 0) words.push_back(text.substr(static_cast<std::size_t>(wordStart)));
    return words;
}

bool containsAny(std::string_view text, std::initializer_list<std::string_view> needles) {
    return std::any_of(needles.begin(), needles.end(),
                       [&](std::string_view needle) { return text.find(needle) != std::string_view::npos; });
}

}  // namespace morvane::intelligence
