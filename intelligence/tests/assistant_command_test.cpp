#include "morvane/intelligence/instruction/assistant_command.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace morvane::intelligence {
namespace {

using ID = AssistantCommandID;

std::vector<ID> idsOf(const std::vector<AssistantCommand>& commands) {
    std::vector<ID> ids;
    for (const auto& c : commands)
        ids.push_back(c.id);
    return ids;
}

std::optional<ID> resolved(std::string_view text) {
    const auto* c = AssistantCommandCatalog::resolve(text);
    return c ? std::optional(c->id) : std::nullopt;
}

TEST(AssistantCommandCatalog, holdsEighteenCommandsInCatalogOrderWithTheirFlags) {
    const auto& all = AssistantCommandCatalog::all();
    ASSERT_EQ(all.size(), 18u);
    EXPECT_EQ(idsOf(all), (std::vector{ID::cleanUp, ID::removeSilence, ID::makeConcise, ID::shortCut60s,
                                       ID::mainStory, ID::fillerOnly, ID::retakesOnly, ID::generateCaptions,
                                       ID::chapterTitles, ID::autoReframe, ID::personBackground,
                                       ID::reduceNoise, ID::voiceEnhancer, ID::voiceChanger, ID::voiceover,
                                       ID::greenScreen, ID::objectMask, ID::screenCapture}));
    std::set<ID> needModel;
    std::set<ID> needTranscript;
    for (const auto& c : all) {
        if (c.requiresLanguageModel) needModel.insert(c.id);
        if (c.requiresTranscript()) needTranscript.insert(c.id);
        EXPECT_EQ(c.wave, static_cast<int>(c.id) <= static_cast<int>(ID::mainStory) ? 1 : 2)
            << kAssistantCommandIDNames.text(c.id);
        EXPECT_EQ(c.isHidden, c.id == ID::voiceChanger);
        EXPECT_FALSE(c.instruction.empty());
    }
    EXPECT_EQ(needModel, (std::set{ID::makeConcise, ID::mainStory, ID::chapterTitles}));
    EXPECT_EQ(needTranscript,
              (std::set{ID::cleanUp, ID::removeSilence, ID::fillerOnly, ID::retakesOnly, ID::makeConcise,
                        ID::shortCut60s, ID::mainStory, ID::generateCaptions, ID::chapterTitles}));

    const auto* shortCut = AssistantCommandCatalog::command(ID::shortCut60s);
    EXPECT_EQ(shortCut->instruction, "Build a 60-second version with a strong hook.");
    EXPECT_EQ(shortCut->backend, AssistantCommandBackend::durationPack);
    EXPECT_EQ(AssistantCommandCatalog::command(ID::objectMask)->backend, AssistantCommandBackend::comingSoon);
    EXPECT_EQ(AssistantCommandCatalog::command(ID::generateCaptions)->subtitle,
              "From each transcribed Storyline clip, in that clip’s language");
}

TEST(AssistantCommandCatalog, heroPrimaryAndRecipesAreTheFirstWaveCommands) {
    EXPECT_EQ(idsOf(AssistantCommandCatalog::hero()),
              (std::vector{ID::cleanUp, ID::removeSilence, ID::makeConcise, ID::shortCut60s}));
    EXPECT_EQ(idsOf(AssistantCommandCatalog::primary()),
              (std::vector{ID::cleanUp, ID::removeSilence, ID::makeConcise, ID::shortCut60s, ID::mainStory}));
    const auto& recipes = DefaultInstructions::creatorRecipes();
    ASSERT_EQ(recipes.size(), 5u);
    EXPECT_EQ(recipes[0], "Remove mistakes, filler words, and long pauses.");
    EXPECT_EQ(recipes[4], "Keep the main story and cut tangents.");
    EXPECT_EQ(DefaultInstructions::battery().size(), 4u);
    EXPECT_EQ(DefaultInstructions::battery()[3],
              "Select segment IDs that are mostly filler words, false starts, or disfluencies.");
}

TEST(AssistantCommandCatalog, moreSheetSortsByCategoryPrimaryWaveThenTitleAndHidesVoiceChanger) {
    EXPECT_EQ(
        idsOf(AssistantCommandCatalog::moreSheetCommands()),
        (std::vector{// Cleanup: primary first, then wave-1 titles "Filler only" < "Retakes only"
                     ID::cleanUp, ID::removeSilence, ID::fillerOnly, ID::retakesOnly,
                     // Story ("Main story" < "Make concise"), Short form, Polish
                     ID::mainStory, ID::makeConcise, ID::shortCut60s, ID::chapterTitles, ID::generateCaptions,
                     // Picture: "Auto-reframe" < "Green screen" < "Object mask" < "Person background"
                     ID::autoReframe, ID::greenScreen, ID::objectMask, ID::personBackground,
                     // Audio without the hidden voice changer, then Capture
                     ID::voiceEnhancer, ID::reduceNoise, ID::voiceover, ID::screenCapture}));
    ASSERT_NE(AssistantCommandCatalog::command(ID::voiceChanger), nullptr);
    EXPECT_EQ(AssistantCommandCatalog::command(ID::voiceChanger)->title, "Change voice");
}

TEST(AssistantCommandCatalog, resolvesTypedTextByExactMatchThenLongestContainment) {
    struct Case {
        const char* text;
        std::optional<ID> expected;
    } cases[] = {
        {"", std::nullopt},
        {" \n\t ", std::nullopt},
        {"  Remove retakes and keep the best take.  ", ID::retakesOnly},
        {"REMOVE RETAKES AND KEEP THE BEST TAKE.", ID::retakesOnly},
        {"silence", ID::removeSilence},
        {"Remove filler words and disfluencies.", ID::fillerOnly},
        // The text holds a whole instruction: containment in the other direction.
        {"Please: Reduce background noise in the audio. Thanks", ID::reduceNoise},
        // A single word goes to the command with the longest instruction holding it.
        {"keep", ID::personBackground},
        {"best take", ID::retakesOnly},
        {"captions", ID::generateCaptions},
        {"make a pizza", std::nullopt},
        // Held by "...segments only." (58 characters) and "...keep only the clearest..." (56): the longer
        // wins.
        {"only", ID::removeSilence},
        // Exact match wins over containment, and is case-sensitive.
        {"Record a voiceover at the playhead.", ID::voiceover},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(resolved(c.text), c.expected) << '"' << c.text << '"';
    }
}

}  // namespace
}  // namespace morvane::intelligence
