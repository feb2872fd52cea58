#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/Utf8Validator.h"

namespace orv {
namespace {

/// In two pieces, cut anywhere.
bool isWhole(const std::string& text, std::size_t cut) {
    Utf8Validator validator;
    validator.feed(std::string_view(text).substr(0, cut));
    validator.feed(std::string_view(text).substr(cut));
    return validator.isValid() && validator.incompleteBytes() == 0;
}

bool isWholeHoweverCut(const std::string& text) {
    const bool whole = isWhole(text, 0);
    for (std::size_t cut = 1; cut <= text.size(); ++cut)
        EXPECT_EQ(isWhole(text, cut), whole) << cut;
    return whole;
}

TEST(Utf8ValidatorTest, acceptsTheFirstAndLastCharacterOfEveryLength) {
    for (const std::string& text :
         {std::string(1, '\0'), std::string("\x7F"), std::string("\xC2\x80"),
          std::string("\xDF\xBF"), std::string("\xE0\xA0\x80"), std::string("\xED\x9F\xBF"),
          std::string("\xEE\x80\x80"), std::string("\xEF\xBF\xBF"), std::string("\xF0\x90\x80\x80"),
          std::string("\xF4\x8F\xBF\xBF")}) {
        EXPECT_TRUE(isWholeHoweverCut(text));
        EXPECT_TRUE(isWholeHoweverCut("a" + text + text + "b"));
    }
}

TEST(Utf8ValidatorTest, refusesEveryKindOfBadByte) {
    for (const char* text : {
             "\x80",              // a continuation of nothing
             "\xC0\x80",          // overlong
             "\xC1\xBF",          // overlong
             "\xE0\x9F\xBF",      // overlong
             "\xF0\x8F\xBF\xBF",  // overlong
             "\xED\xA0\x80",      // a surrogate
             "\xED\xBF\xBF",      // a surrogate
             "\xF4\x90\x80\x80",  // beyond U+10FFFF
             "\xF5\x80\x80\x80",  // no such lead byte
             "\xFE",
             "\xFF",
             "\xC3(",  // a continuation is missing
             "\xE2\x82(",
             "\xF0\x9F\x98(",
             "\xC3\xC3\xA9",
         }) {
        EXPECT_FALSE(isWholeHoweverCut(text));
        EXPECT_FALSE(isWholeHoweverCut(std::string(100, 'a') + text + std::string(100, 'a')));
    }
}

TEST(Utf8ValidatorTest, countsTheBytesOfAnIncompleteCharacter) {
    Utf8Validator validator;
    const std::string text = "a\xF0\x9F\x98\x80";
    std::vector<std::size_t> incomplete;
    for (const char byte : text) {
        EXPECT_TRUE(validator.feed({&byte, 1}));
        incomplete.push_back(validator.incompleteBytes());
    }
    EXPECT_EQ(incomplete, (std::vector<std::size_t>{0, 1, 2, 3, 0}));
}

TEST(Utf8ValidatorTest, aBadByteIsNeverForgiven) {
    Utf8Validator validator;
    EXPECT_FALSE(validator.feed("\xFF"));
    EXPECT_FALSE(validator.feed("fine"));
    EXPECT_FALSE(validator.isValid());
}

TEST(Utf8ValidatorTest, agreesWithTheCheckOfWholeTexts) {
    std::mt19937 random(7);
    const std::string bytes("a\x7F\x80\x8F\x90\x9F\xA0\xBF\xC2\xDF\xE0\xE1\xED\xEF\xF0\xF1\xF4");
    int valid = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t size = random() % 6; text.size() < size;) {
            text += bytes[random() % bytes.size()];
        }
        const bool expected = isValidUtf8(text);
        valid += expected ? 1 : 0;
        ASSERT_EQ(isWhole(text, random() % (text.size() + 1)), expected)
            << testing::PrintToString(text);
    }
    EXPECT_GT(valid, 1000);
}

TEST(Utf8ValidatorTest, findsTheOneBadByteInALongText) {
    std::mt19937 random(13);
    const std::vector<std::string> characters{"a", "plain words ", "ż", "€", "한", "😀"};
    int valid = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        while (text.size() < 300)
            text += characters[random() % characters.size()];
        if (random() % 2 == 0) text[random() % text.size()] = static_cast<char>(random() % 256);
        const bool expected = isValidUtf8(text);
        valid += expected ? 1 : 0;
        ASSERT_EQ(isWhole(text, random() % text.size()), expected) << testing::PrintToString(text);
    }
    EXPECT_GT(valid, 1500);
    EXPECT_LT(valid, 2500);
}

TEST(Utf8ValidatorTest, anIncompleteCharacterMaySpanManyPieces) {
    std::string text(70, 'a');
    for (const char* character : {"ż", "€", "😀"})
        text += character;
    for (std::size_t cut = 1; cut <= text.size(); ++cut) {
        Utf8Validator whole;
        Utf8Validator bytewise;
        ASSERT_TRUE(whole.feed(std::string_view(text).substr(0, cut)));
        for (std::size_t i = 0; i < cut; ++i)
            ASSERT_TRUE(bytewise.feed({&text[i], 1}));
        EXPECT_EQ(whole.incompleteBytes(), bytewise.incompleteBytes()) << cut;
        const bool isComplete = isValidUtf8(std::string_view(text).substr(0, cut));
        EXPECT_EQ(whole.incompleteBytes() == 0, isComplete) << cut;
    }
}

}  // namespace
}  // namespace orv
