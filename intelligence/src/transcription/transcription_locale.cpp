#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <set>

#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/transcription_provider.hpp"

namespace morvane::intelligence::TranscriptionLocale {

namespace {

constexpr std::string_view kPromptModeKey = "morvane.transcriptionPromptMode";
constexpr std::string_view kLastLocaleKey = "morvane.transcriptionLastLocale";
constexpr std::string_view kAlwaysLocaleKey = "morvane.transcriptionLocale";

std::string nonEmpty(std::optional<std::string> value) {
    return value.value_or(std::string());
}

}  // namespace

const std::vector<std::string>& fixedLocales() {
    static const std::vector<std::string> locales{
        "en-US", "en-GB", "en-AU", "en-CA", "en-IN", "es-ES", "es-MX", "es-US", "fr-FR", "fr-CA", "de-DE",
        "it-IT", "pt-BR", "ja-JP", "ko-KR", "zh-CN", "zh-TW", "zh-HK", "ar-SA", "he-IL", "nl-NL", "da-DK",
        "fi-FI", "nb-NO", "sv-SE", "pl-PL", "ru-RU", "tr-TR", "th-TH", "vi-VN", "ms-MY",
    };
    return locales;
}

std::string displayName(std::string_view locale) {
    const std::string identifier(locale);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale icuLocale = icu::Locale::forLanguageTag(identifier, status);
    if (U_FAILURE(status)) return identifier;
    icu::UnicodeString name;
    icuLocale.getDisplayName(icu::Locale::getDefault(), name);
    std::string utf8;
    name.toUTF8String(utf8);
    return utf8.empty() ? identifier : utf8;
}

std::vector<std::string> availableLocales(const std::vector<std::string>& supported) {
    const std::vector<std::string>& source = supported.empty() ? fixedLocales() : supported;
    std::vector<std::string> unique;
    std::set<std::string> seen;
    for (const std::string& locale : source) {
        if (seen.insert(locale).second) unique.push_back(locale);
    }
    // Names are computed once, not at every comparison of the sort.
    std::vector<std::pair<std::string, std::string>> named;
    named.reserve(unique.size());
    for (std::string& locale : unique)
        named.emplace_back(displayName(locale), std::move(locale));
    std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
        return localizedCaseInsensitiveCompare(a.first, b.first) < 0;
    });
    std::vector<std::string> sorted;
    sorted.reserve(named.size());
    for (auto& entry : named)
        sorted.push_back(std::move(entry.second));
    return sorted;
}

TranscriptionPromptMode promptMode(const PreferencesStore& preferences) {
    const std::string stored = nonEmpty(preferences.string(kPromptModeKey));
    return kTranscriptionPromptModeNames.parse(stored).value_or(TranscriptionPromptMode::askEveryTime);
}

void setPromptMode(PreferencesStore& preferences, TranscriptionPromptMode mode) {
    preferences.set(kPromptModeKey, kTranscriptionPromptModeNames.text(mode));
}

std::string alwaysIdentifier(const PreferencesStore& preferences) {
    std::string stored = nonEmpty(preferences.string(kAlwaysLocaleKey));
    return stored.empty() ? std::string(fallback) : stored;
}

std::optional<std::string> resolvedLocaleWithoutPrompt(const PreferencesStore& preferences) {
    switch (promptMode(preferences)) {
        case TranscriptionPromptMode::askEveryTime:
            return std::nullopt;
        case TranscriptionPromptMode::lastSelected: {
            std::string last = nonEmpty(preferences.string(kLastLocaleKey));
            if (last.empty()) return std::nullopt;
            return last;
        }
        case TranscriptionPromptMode::always:
            return alwaysIdentifier(preferences);
    }
    return std::nullopt;
}

void remember(PreferencesStore& preferences, std::string_view locale, TranscriptionPromptMode mode) {
    preferences.set(kLastLocaleKey, locale);
    setPromptMode(preferences, mode);
    if (mode == TranscriptionPromptMode::always) preferences.set(kAlwaysLocaleKey, locale);
}

}  // namespace morvane::intelligence::TranscriptionLocale
