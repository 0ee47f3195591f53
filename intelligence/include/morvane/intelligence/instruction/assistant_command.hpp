#pragma once

/// The assistant's eighteen commands: their wording, what carries each out, and how typed text resolves
/// to one of them.
///
///     for (const auto& c : AssistantCommandCatalog::primary()) showButton(c.title, c.subtitle);
///     if (const auto* c = AssistantCommandCatalog::resolve("  Remove retakes and keep the best take.  "))
///         c->id;   // AssistantCommandID::retakesOnly

#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"

namespace morvane::intelligence {

enum class AssistantCommandID {
    cleanUp,
    removeSilence,
    fillerOnly,
    retakesOnly,
    makeConcise,
    shortCut60s,
    mainStory,
    generateCaptions,
    chapterTitles,
    autoReframe,
    personBackground,
    reduceNoise,
    voiceEnhancer,
    voiceChanger,
    voiceover,
    greenScreen,
    objectMask,
    screenCapture,
};

/// Raw values are the case names.
inline constexpr auto kAssistantCommandIDNames = makeEnumTable<AssistantCommandID>({
    {AssistantCommandID::cleanUp, "cleanUp"},
    {AssistantCommandID::removeSilence, "removeSilence"},
    {AssistantCommandID::fillerOnly, "fillerOnly"},
    {AssistantCommandID::retakesOnly, "retakesOnly"},
    {AssistantCommandID::makeConcise, "makeConcise"},
    {AssistantCommandID::shortCut60s, "shortCut60s"},
    {AssistantCommandID::mainStory, "mainStory"},
    {AssistantCommandID::generateCaptions, "generateCaptions"},
    {AssistantCommandID::chapterTitles, "chapterTitles"},
    {AssistantCommandID::autoReframe, "autoReframe"},
    {AssistantCommandID::personBackground, "personBackground"},
    {AssistantCommandID::reduceNoise, "reduceNoise"},
    {AssistantCommandID::voiceEnhancer, "voiceEnhancer"},
    {AssistantCommandID::voiceChanger, "voiceChanger"},
    {AssistantCommandID::voiceover, "voiceover"},
    {AssistantCommandID::greenScreen, "greenScreen"},
    {AssistantCommandID::objectMask, "objectMask"},
    {AssistantCommandID::screenCapture, "screenCapture"},
});

/// The groups of the command sheet, in sheet order.
enum class AssistantCommandCategory { cleanup, story, shortForm, polish, picture, audio, capture };

inline constexpr auto kAssistantCommandCategoryNames = makeEnumTable<AssistantCommandCategory>({
    {AssistantCommandCategory::cleanup, "Cleanup"},
    {AssistantCommandCategory::story, "Story"},
    {AssistantCommandCategory::shortForm, "Short form"},
    {AssistantCommandCategory::polish, "Polish"},
    {AssistantCommandCategory::picture, "Picture"},
    {AssistantCommandCategory::audio, "Audio"},
    {AssistantCommandCategory::capture, "Capture"},
});

/// What carries a command out: fixed rules, a language model, the duration packer, an engine tool, or
/// nothing yet.
enum class AssistantCommandBackend { deterministic, languageModel, durationPack, engine, comingSoon };

inline constexpr auto kAssistantCommandBackendNames = makeEnumTable<AssistantCommandBackend>({
    {AssistantCommandBackend::deterministic, "deterministic"},
    {AssistantCommandBackend::languageModel, "languageModel"},
    {AssistantCommandBackend::durationPack, "durationPack"},
    {AssistantCommandBackend::engine, "engine"},
    {AssistantCommandBackend::comingSoon, "comingSoon"},
});

struct AssistantCommand {
    AssistantCommandID id{};
    std::string_view title;     ///< button title
    std::string_view subtitle;  ///< one-line explanation
    AssistantCommandCategory category{};
    AssistantCommandBackend backend{};
    std::string instruction;  ///< canonical instruction text, also kept in the chat history
    bool isPrimary = false;   ///< shown among the first commands
    int wave = 1;             ///< release wave: 1 or 2
    bool requiresLanguageModel = false;
    bool isHidden = false;  ///< left out of every list, but found by id
    std::string_view symbolName;

    /// True for the commands that decide on transcript segments: cleanUp through chapterTitles.
    [[nodiscard]] bool requiresTranscript() const noexcept;
};

namespace AssistantCommandCatalog {

/// Every command, in catalog order.
[[nodiscard]] const std::vector<AssistantCommand>& all();

/// cleanUp, removeSilence, makeConcise, shortCut60s.
[[nodiscard]] const std::vector<AssistantCommand>& hero();

/// The primary first-wave commands that can run and aren't hidden, in catalog order.
[[nodiscard]] const std::vector<AssistantCommand>& primary();

/// Every visible command, by category, primary first, then wave, then title (case-insensitive, in the
/// user's collation).
[[nodiscard]] const std::vector<AssistantCommand>& moreSheetCommands();

/// The command with `id`, hidden ones included.
[[nodiscard]] const AssistantCommand* command(AssistantCommandID id);

/// The command that typed text asks for, or none: an exact match of a command's instruction after
/// trimming, otherwise the command with the longest instruction that contains the text or is contained
/// in it, ignoring case (ties go to the earlier command).
[[nodiscard]] const AssistantCommand* resolve(std::string_view instruction);

}  // namespace AssistantCommandCatalog

namespace DefaultInstructions {

/// The instructions of the primary commands, in catalog order.
[[nodiscard]] const std::vector<std::string>& creatorRecipes();

/// The fixed evaluation battery, in order.
[[nodiscard]] const std::vector<std::string>& battery();

}  // namespace DefaultInstructions

}  // namespace morvane::intelligence
