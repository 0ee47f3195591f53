#include "morvane/intelligence/instruction/assistant_command.hpp"

#include <algorithm>

#include "morvane/intelligence/cleanup/duration_target_packer.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

using ID = AssistantCommandID;
using Category = AssistantCommandCategory;
using Backend = AssistantCommandBackend;

std::vector<AssistantCommand> buildCatalog() {
    struct Row {
        ID id;
        std::string_view title;
        std::string_view subtitle;
        Category category;
        Backend backend;
        int wave;
        std::string_view symbolName;
        std::string instruction;
    };
    const Row rows[] = {
        {ID::cleanUp, "Clean up", "Remove filler, false starts, and retakes", Category::cleanup,
         Backend::deterministic, 1, "eraser", "Remove mistakes, filler words, and long pauses."},
        {ID::removeSilence, "Remove silence", "Cut pauses and keep spoken ranges", Category::cleanup,
         Backend::deterministic, 1, "speaker.slash",
         "Remove silence and long pauses; keep spoken segments only."},
        {ID::makeConcise, "Make concise", "Keep the clearest explanations", Category::story,
         Backend::languageModel, 1, "scissors", "Make this concise — keep only the clearest explanations."},
        {ID::shortCut60s, "Short cut", "Pack to a target length", Category::shortForm, Backend::durationPack,
         1, "timer", DurationTargetPacker::instruction(60)},
        {ID::mainStory, "Main story", "Keep the through-line, cut tangents", Category::story,
         Backend::languageModel, 1, "book", "Keep the main story and cut tangents."},
        {ID::fillerOnly, "Filler only", "Drop ums, uhs, and false starts", Category::cleanup,
         Backend::deterministic, 1, "text.badge.xmark", "Remove filler words and disfluencies."},
        {ID::retakesOnly, "Retakes only", "Keep the best take of duplicates", Category::cleanup,
         Backend::deterministic, 1, "arrow.triangle.2.circlepath", "Remove retakes and keep the best take."},
        {ID::generateCaptions, "Generate captions",
         "From each transcribed Storyline clip, in that clip’s language", Category::polish, Backend::engine,
         2, "captions.bubble", "Generate captions from the transcript."},
        {ID::chapterTitles, "Chapter titles", "On-device outline, then place on the timeline",
         Category::polish, Backend::languageModel, 2, "list.bullet.rectangle",
         "Add chapter titles at section starts based on the transcript."},
        {ID::autoReframe, "Auto-reframe", "Vertical crop for Shorts", Category::picture, Backend::engine, 2,
         "crop", "Auto-reframe for vertical Shorts."},
        {ID::personBackground, "Person background",
         "Cut a person from any room, or keep the room for titles behind them", Category::picture,
         Backend::engine, 2, "person.crop.square",
         "Cut the person out of a real room. Keep the original scene so titles sit behind them, or replace "
         "the "
         "background. Do not use this on green-screen footage."},
        {ID::reduceNoise, "Reduce noise", "Clean background audio", Category::audio, Backend::engine, 2,
         "waveform", "Reduce background noise in the audio."},
        {ID::voiceEnhancer, "Enhance voice", "Make dialogue sound stronger and clearer", Category::audio,
         Backend::engine, 2, "waveform.badge.plus", "Enhance the voice to sound stronger and clearer."},
        {ID::voiceChanger, "Change voice", "Make your voice sound deeper, higher, or different",
         Category::audio, Backend::engine, 2, "theatermasks", "Change the voice's pitch to sound different."},
        {ID::voiceover, "Voiceover", "Record narration at the playhead", Category::audio, Backend::engine, 2,
         "mic", "Record a voiceover at the playhead."},
        {ID::greenScreen, "Green screen", "Key a green/blue screen, or overlay it on the Storyline",
         Category::picture, Backend::engine, 2, "rectangle.on.rectangle",
         "Key out a green or blue screen. On B-Roll, fill with the clip below and place with Slot."},
        {ID::objectMask, "Object mask", "Mask an object for text or background", Category::picture,
         Backend::comingSoon, 2, "circle.dashed", "Create a segmentation mask around an object."},
        {ID::screenCapture, "Screen capture", "Capture desktop into the storyline", Category::capture,
         Backend::engine, 2, "rectangle.dashed", "Capture screen, camera, and audio into the storyline."},
    };
    std::vector<AssistantCommand> catalog;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        catalog.push_back({
            .id = row.id,
            .title = row.title,
            .subtitle = row.subtitle,
            .category = row.category,
            .backend = row.backend,
            .instruction = row.instruction,
            .isPrimary = i < 5,
            .wave = row.wave,
            .requiresLanguageModel =
                row.id == ID::makeConcise || row.id == ID::mainStory || row.id == ID::chapterTitles,
            .isHidden = row.id == ID::voiceChanger,
            .symbolName = row.symbolName,
        });
    }
    return catalog;
}

std::vector<AssistantCommand> select(std::initializer_list<ID> ids) {
    std::vector<AssistantCommand> out;
    for (ID id : ids)
        out.push_back(*AssistantCommandCatalog::command(id));
    return out;
}

}  // namespace

bool AssistantCommand::requiresTranscript() const noexcept {
    return static_cast<int>(id) <= static_cast<int>(AssistantCommandID::chapterTitles);
}

const std::vector<AssistantCommand>& AssistantCommandCatalog::all() {
    static const std::vector<AssistantCommand> catalog = buildCatalog();
    return catalog;
}

const std::vector<AssistantCommand>& AssistantCommandCatalog::hero() {
    static const auto commands = select({ID::cleanUp, ID::removeSilence, ID::makeConcise, ID::shortCut60s});
    return commands;
}

const std::vector<AssistantCommand>& AssistantCommandCatalog::primary() {
    static const auto commands = [] {
        std::vector<AssistantCommand> out;
        for (const auto& c : all()) {
            if (c.isPrimary && c.wave == 1 && c.backend != Backend::comingSoon && !c.isHidden)
                out.push_back(c);
        }
        return out;
    }();
    return commands;
}

const std::vector<AssistantCommand>& AssistantCommandCatalog::moreSheetCommands() {
    static const auto commands = [] {
        std::vector<AssistantCommand> out;
        std::copy_if(all().begin(), all().end(), std::back_inserter(out),
                     [](const auto& c) { return !c.isHidden; });
        std::stable_sort(out.begin(), out.end(), [](const AssistantCommand& a, const AssistantCommand& b) {
            if (a.category != b.category) return a.category < b.category;
            if (a.isPrimary != b.isPrimary) return a.isPrimary;
            if (a.wave != b.wave) return a.wave < b.wave;
            return localizedCaseInsensitiveCompare(a.title, b.title) < 0;
        });
        return out;
    }();
    return commands;
}

const AssistantCommand* AssistantCommandCatalog::command(AssistantCommandID id) {
    for (const auto& c : all()) {
        if (c.id == id) return &c;
    }
    return nullptr;
}

const AssistantCommand* AssistantCommandCatalog::resolve(std::string_view instruction) {
    const std::string_view trimmed = trimWhitespaceAndNewlines(instruction);
    if (trimmed.empty()) return nullptr;
    for (const auto& c : all()) {
        if (c.instruction == trimmed) return &c;
    }
    const std::string lowered = lowercased(trimmed);
    const AssistantCommand* best = nullptr;
    std::size_t bestLength = 0;
    for (const auto& c : all()) {
        const std::string candidate = lowercased(c.instruction);
        if (lowered.find(candidate) == std::string::npos && candidate.find(lowered) == std::string::npos)
            continue;
        const std::size_t length = characterCount(c.instruction);
        if (best == nullptr || length > bestLength) {
            best = &c;
            bestLength = length;
        }
    }
    return best;
}

const std::vector<std::string>& DefaultInstructions::creatorRecipes() {
    static const auto recipes = [] {
        std::vector<std::string> out;
        for (const auto& c : AssistantCommandCatalog::primary())
            out.push_back(c.instruction);
        return out;
    }();
    return recipes;
}

const std::vector<std::string>& DefaultInstructions::battery() {
    static const std::vector<std::string> instructions{
        "Select segment IDs whose topic is open licensing, Creative Commons, or free culture licenses.",
        "Select segment IDs whose topic is remix culture, read-write culture, or sample-based music.",
        "Select segment IDs whose topic is copyright term extension, the Sonny Bono Act, or the public "
        "domain.",
        "Select segment IDs that are mostly filler words, false starts, or disfluencies.",
    };
    return instructions;
}

}  // namespace morvane::intelligence
