#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/TextLimiter.h"

namespace orv {
namespace {

constexpr std::string_view marker = "[cut]";

std::string limited(std::string_view text, std::size_t limit, std::size_t pieceSize) {
    TextLimiter limiter(limit);
    for (; !text.empty(); text.remove_prefix(std::min(pieceSize, text.size()))) {
        limiter.feed(text.substr(0, pieceSize));
    }
    return limiter.finish(marker);
}

std::string joined(const std::vector<std::string>& characters, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += characters[i];
    return text;
}

/// The text made of these characters, at every limit and in pieces of several sizes.
void expectCutsBetween(const std::vector<std::string>& characters) {
    const std::string text = joined(characters, characters.size());
    for (std::size_t limit = 0; limit <= characters.size() + 1; ++limit) {
        const bool fits = limit >= characters.size();
        const std::string expected = fits ? text : joined(characters, limit) + std::string(marker);
        for (const std::size_t piece : {1, 2, 3, 5, 7, 100000}) {
            EXPECT_EQ(limited(text, limit, piece), expected) << limit << " in " << piece;
        }
    }
}

TEST(TextLimiterTest, noOutputIsAnEmptyText) {
    EXPECT_EQ(limited("", 10, 1), "");
}

TEST(TextLimiterTest, plainTextIsCutAfterTheLimit) {
    expectCutsBetween({"p", "l", "a", "i", "n", "\n", "\t", std::string(1, '\0')});
}

TEST(TextLimiterTest, aLineEndOfTwoBytesIsOneCharacter) {
    expectCutsBetween({"a", "\r\n", "b", "\r\n", "\r\n", "\r", "\r\n", "\n", "\n", "\r"});
}

TEST(TextLimiterTest, aLetterAndItsMarksAreOneCharacter) {
    expectCutsBetween({"z", "ż", "z\u0307", "e\u0301\u0323", "x"});
    expectCutsBetween({"\n", "\u0301", "a"});
}

TEST(TextLimiterTest, anEmojiOfManyPartsIsOneCharacter) {
    expectCutsBetween({"👍🏽", "👩‍👩‍👧‍👦", "a", "❤️", "👩🏿‍🚀", "1️⃣", "b"});
}

TEST(TextLimiterTest, flagsAreCountedInPairs) {
    expectCutsBetween({"🇵🇱", "🇺🇦", "🇬🇧", "🇩", "a", "🇵🇱", "🇪"});
}

TEST(TextLimiterTest, syllablesOfSeveralLettersAreOneCharacter) {
    expectCutsBetween({"\u1112\u1161\u11AB", "\u1100\u1173\u11AF", "한", "글"});  // Hangul
    expectCutsBetween({"नि", "ต่ำ", "à"});
}

TEST(TextLimiterTest, agreesWithTheCountOfWholeTexts) {
    const std::vector<std::string> parts{
        "a",      "\r",     "\n",     " ",      "\u0301", "🇵", "🇱", "👩", "🏽",     "\u200D",
        "\uFE0F", "\u1112", "\u1161", "\u11AB", "한",     "न", "ि", "ż",  "\u0600", "é"};
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (std::size_t size = random() % 12; size > 0; --size)
            text += parts[random() % parts.size()];
        const std::size_t characters = characterCount(text);
        const std::size_t piece = 1 + random() % 9;
        ASSERT_EQ(limited(text, characters, piece), text);
        if (characters == 0) continue;
        const std::string shorter = limited(text, characters - 1, piece);
        ASSERT_TRUE(shorter.ends_with(marker));
        const std::string kept = shorter.substr(0, shorter.size() - marker.size());
        ASSERT_TRUE(text.starts_with(kept));
        ASSERT_EQ(characterCount(kept), characters - 1) << testing::PrintToString(text);
    }
}

TEST(TextLimiterTest, aBadByteAnywhereMakesTheTextEmpty) {
    EXPECT_EQ(limited("\xFFgood", 10, 2), "");
    EXPECT_EQ(limited("good\xFF", 10, 2), "");
    EXPECT_EQ(limited("good \xC0\xAF good", 10, 100), "");
    // Also far behind the limit.
    std::string text(10000, 'a');
    text[5000] = '\x80';
    EXPECT_EQ(limited(text, 10, 1000), "");
}

TEST(TextLimiterTest, anIncompleteCharacterAtTheEndMakesTheTextEmpty) {
    EXPECT_EQ(limited("good \xE2\x82", 100, 3), "");
    EXPECT_EQ(limited("good \xF0\x9F\x98", 2, 1), "");
    EXPECT_EQ(limited("\xC5", 100, 1), "");
}

TEST(TextLimiterTest, aCharacterOfAMegabyteIsOneCharacter) {
    std::string text = "e";
    while (text.size() < (1U << 20))
        text += "\u0301";
    EXPECT_EQ(limited(text, 1, 65536), text);
    EXPECT_EQ(limited(text + "x", 1, 65536), text + std::string(marker));
}

TEST(TextLimiterTest, whatIsKeptHasACeilingAlsoWithinOneCharacter) {
    std::string text = "e";
    while (text.size() < (5U << 20))
        text += "\u0301";
    const std::string kept = limited(text, 1000, 65536);
    EXPECT_TRUE(kept.ends_with(marker));
    EXPECT_LE(kept.size(), (2U << 20) + marker.size());
    EXPECT_GE(kept.size(), (2U << 20) - 4);
    EXPECT_TRUE(isValidUtf8(kept));
    EXPECT_TRUE(text.starts_with(kept.substr(0, kept.size() - marker.size())));
}

TEST(TextLimiterTest, theCeilingGrowsWithTheLimit) {
    std::string text;
    for (int i = 0; i < 200000; ++i)
        text += "❤\uFE0F\u200D🔥";
    ASSERT_GT(text.size(), 2U << 20);
    EXPECT_EQ(limited(text, 200000, 65536), text);
}

}  // namespace
}  // namespace orv
