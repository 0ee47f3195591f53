#pragma once

/// Turning a recording's speech into a word-timed transcript, and remembering which language the user
/// transcribes in. The provider is the seam between the project and a speech recogniser; the language
/// choice lives in the preferences.
///
///     auto locale = TranscriptionLocale::resolvedLocaleWithoutPrompt(prefs);   // none: ask the user
///     if (!locale) locale = askUser(TranscriptionLocale::availableLocales(provider.supportedLocales()));
///     TranscriptionLocale::remember(prefs, *locale, TranscriptionPromptMode::lastSelected);
///     TranscriptDocument transcript = provider.transcribe("talk.mp4", *locale, onProgress, stop);

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane {
class PreferencesStore;
}

namespace morvane::intelligence {

/// What a transcription runs with.
struct TranscriptionOptions {
    std::string locale;  ///< a BCP 47 identifier such as "en-US"
};

/// Transcribes one media file. Implementations run synchronously on the caller's (worker) thread and
/// share nothing between calls.
class TranscriptionProvider {
  public:
    virtual ~TranscriptionProvider() = default;

    /// The words spoken in the first audio track of `media`, ids from 0, times on timescale 600, never
    /// overlapping. Nothing is delivered until the whole file is done. Throws `IntelligenceError`:
    /// `missingFile` for a missing file; `decodeFailed` with "This file has no audio track to transcribe
    /// (common for silent screen recordings). Import a clip with speech, or add a separate audio source."
    /// for a file without audio, with "No speech could be analyzed in this audio — the track may be silent
    /// or empty." when nothing was recognised, and with "Speech assets unavailable for " + the locales
    /// when the recogniser's model is missing; `emptyTranscript` when no word came out. Throws
    /// `OperationCancelled` when `stop` is requested.
    [[nodiscard]] virtual TranscriptDocument transcribe(const std::filesystem::path& media,
                                                        const TranscriptionOptions& options,
                                                        const ProgressCallback& progress = {},
                                                        std::stop_token stop = {}) = 0;

    /// The locale identifiers this provider can transcribe; empty when it can't tell.
    [[nodiscard]] virtual std::vector<std::string> supportedLocales() const = 0;
};

/// When the language of a transcription is asked for.
enum class TranscriptionPromptMode { askEveryTime, lastSelected, always };
inline constexpr auto kTranscriptionPromptModeNames = makeEnumTable<TranscriptionPromptMode>({
    {TranscriptionPromptMode::askEveryTime, "askEveryTime"},
    {TranscriptionPromptMode::lastSelected, "lastSelected"},
    {TranscriptionPromptMode::always, "always"},
});

/// The user's language choice for transcription, kept in the preferences under
/// "morvane.transcriptionPromptMode", "morvane.transcriptionLastLocale" and "morvane.transcriptionLocale".
namespace TranscriptionLocale {

/// The language used when nothing else says which.
inline constexpr std::string_view fallback = "en-US";

/// The 31 languages offered when the recognisers name none, in their fixed order.
[[nodiscard]] const std::vector<std::string>& fixedLocales();

/// The languages to offer: `supported` (or the fixed list when it is empty) without duplicates, the first
/// of each kept, sorted by display name in the user's language, case-insensitively.
[[nodiscard]] std::vector<std::string> availableLocales(const std::vector<std::string>& supported);

/// The name of a locale in the user's language ("English (United States)").
[[nodiscard]] std::string displayName(std::string_view locale);

/// The stored mode; `askEveryTime` when unset or unknown.
[[nodiscard]] TranscriptionPromptMode promptMode(const PreferencesStore& preferences);
/// Stores the mode. Throws `std::filesystem::filesystem_error` when the preferences can't be written.
void setPromptMode(PreferencesStore& preferences, TranscriptionPromptMode mode);

/// The language of the mode `always`: "morvane.transcriptionLocale", or `fallback` when unset or empty.
[[nodiscard]] std::string alwaysIdentifier(const PreferencesStore& preferences);

/// The language to use without asking, or none when the user must be asked: `askEveryTime` gives none,
/// `lastSelected` the last language chosen (none when unset or empty), `always` `alwaysIdentifier`.
[[nodiscard]] std::optional<std::string> resolvedLocaleWithoutPrompt(const PreferencesStore& preferences);

/// Keeps the user's choice: the language as the last one chosen, the mode, and with `always` the
/// language as the one to always use. Throws `std::filesystem::filesystem_error` when the preferences
/// can't be written.
void remember(PreferencesStore& preferences, std::string_view locale, TranscriptionPromptMode mode);

}  // namespace TranscriptionLocale

}  // namespace morvane::intelligence
