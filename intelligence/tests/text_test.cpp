#include "morvane/intelligence/support/text.hpp"

#include <gtest/gtest.h>

#include "morvane/intelligence/intelligence_error.hpp"

namespace morvane::intelligence {
namespace {

TEST(Text, lowercasesFullUnicodeIndependentOfLocale) {
    EXPECT_EQ(lowercased("REMOVE Retakes"), "remove retakes");
    EXPECT_EQ(lowercased("ÀÉÎ ÑANDÚ"), "àéî ñandú");
    EXPECT_EQ(lowercased("İSTANBUL"), "i\u0307stanbul");  // root mapping, not Turkish
    EXPECT_EQ(lowercased("ΣΟΦΙΑ"), "σοφια");
    EXPECT_EQ(lowercased(""), "");
}

TEST(Text, trimsWhitespaceAndPunctuationAtTheEndsOnly) {
    EXPECT_EQ(trimWhitespaceAndNewlines(" \t\n hi there \r\n"), "hi there");
    EXPECT_EQ(trimWhitespaceAndNewlines("\u3000\u00a0word\u2029"), "word");
    EXPECT_EQ(trimWhitespaceAndNewlines("   "), "");
    EXPECT_EQ(trimWhitespaceAndNewlines("\xff "), "\xff");  // malformed bytes are kept, not trimmed
    EXPECT_EQ(trimmingPunctuation("\"Um,\""), "Um");
    EXPECT_EQ(trimmingPunctuation("«¿qué?»"), "qué");
    EXPECT_EQ(trimmingPunctuation("re-take"), "re-take");
    EXPECT_EQ(trimmingPunctuation("..."), "");
    EXPECT_EQ(trimmingPunctuation("$5"), "$5");  // currency signs are symbols, not punctuation
}

TEST(Text, splitsAtRunsOfWhiteSpace) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(splitAtWhitespace(" so,\tum\n  we "), (Pieces{"so,", "um", "we"}));
    EXPECT_EQ(splitAtWhitespace("多\u3000語\u00a0x"), (Pieces{"多", "語", "x"}));  // wide and no-break spaces
    EXPECT_EQ(splitAtWhitespace("a\xff"
                                "b"),
              Pieces{"a\xff"
                     "b"});  // malformed bytes don't split
    EXPECT_EQ(splitAtWhitespace(" \r\n "), Pieces{});
    EXPECT_EQ(splitAtWhitespace(""), Pieces{});
}

TEST(Text, countsUserPerceivedCharacters) {
    EXPECT_EQ(characterCount("abc"), 3u);
    EXPECT_EQ(characterCount("e\u0301t\u00e9"), 3u);
    EXPECT_EQ(characterCount("\r\n"), 1u);
    EXPECT_EQ(characterCount("👍🏽!"), 2u);
    EXPECT_EQ(characterCount("—"), 1u);
    EXPECT_EQ(characterCount(""), 0u);
}

TEST(Text, findsLettersMarksAndNumbers) {
    EXPECT_TRUE(containsAlphanumeric("...a"));
    EXPECT_TRUE(containsAlphanumeric("٣"));
    EXPECT_TRUE(containsAlphanumeric("漢"));
    EXPECT_FALSE(containsAlphanumeric("... — !? "));
    EXPECT_FALSE(containsAlphanumeric("👍"));
    EXPECT_LT(localizedCaseInsensitiveCompare("apple", "Banana"), 0);
    EXPECT_EQ(localizedCaseInsensitiveCompare("Voice", "voice"), 0);
    EXPECT_GT(localizedCaseInsensitiveCompare("Object mask", "Green screen"), 0);
}

TEST(Text, splitsWordsOnAnyUnicodeWhiteSpace) {
    using Words = std::vector<std::string_view>;
    EXPECT_EQ(whitespaceSeparatedWords("  Here's\tthe\n\nsecret. "), (Words{"Here's", "the", "secret."}));
    EXPECT_EQ(whitespaceSeparatedWords("a\u00a0b\u3000c\u2029d"), (Words{"a", "b", "c", "d"}));
    EXPECT_EQ(whitespaceSeparatedWords("\u00e9t\u00e9"), (Words{"\u00e9t\u00e9"}));
    EXPECT_TRUE(whitespaceSeparatedWords(" \r\n ").empty());
    EXPECT_TRUE(whitespaceSeparatedWords("").empty());
}

TEST(IntelligenceError, describesEveryCaseAndSpotsSoftTranscriptionFailures) {
    struct Case {
        IntelligenceError error;
        const char* text;
        bool soft;
    } cases[] = {
        {IntelligenceError::missingFile("/tmp/a.mp4"), "Couldn’t find that media file (/tmp/a.mp4).", false},
        {IntelligenceError::remoteModelUnavailable("Not built in."),
         "The remote model is unavailable. Not built in.", false},
        {IntelligenceError::decodeFailed("This file has no audio track to transcribe."),
         "This file has no audio track to transcribe.", true},
        {IntelligenceError::decodeFailed("The track may be SILENT or empty."),
         "The track may be SILENT or empty.", true},
        {IntelligenceError::decodeFailed("No speech could be analyzed"), "No speech could be analyzed", true},
        {IntelligenceError::decodeFailed("Broken header"), "Broken header", false},
        {IntelligenceError::unsupportedInstruction("Green screen"), "“Green screen” is not available yet.",
         false},
        {IntelligenceError::emptyTranscript(),
         "No speech was found to transcribe. You can still edit on the timeline.", true},
        {IntelligenceError::emptySegments(),
         "No speech segments to work with yet. Transcribe a clip that has dialogue.", false},
        {IntelligenceError::languageModelUnavailable(),
         "No language model is available. Start a local model server and set it in Preferences → Language "
         "Model "
         "to use AI rough cuts.",
         false},
        {IntelligenceError::remoteModelQuotaExceeded(),
         "The remote model's daily quota is used up. Try again tomorrow.", false},
    };
    for (const auto& c : cases) {
        EXPECT_STREQ(c.error.what(), c.text);
        EXPECT_EQ(c.error.isSoftTranscriptionFailure(), c.soft) << c.text;
    }
}

}  // namespace
}  // namespace morvane::intelligence
