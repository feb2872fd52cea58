#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Text.h"

namespace orv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> inLocalizedOrder(std::vector<std::string> names) {
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return compareLocalized(a, b) < 0;
    });
    return names;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

TEST(TextTest, trimsWhiteSpaceOfEveryKindAtBothEnds) {
    EXPECT_EQ(trimmed(" \t\r\n\v\f text inside \n"), "text inside");
    EXPECT_EQ(trimmed("\u0085\u00A0\u1680\u2003\u2028\u2029\u202F\u3000x\u205F\u00A0"), "x");
}

TEST(TextTest, trimsNothingElse) {
    EXPECT_EQ(trimmed(std::string_view("\0x\x1F", 3)), std::string_view("\0x\x1F", 3));
    EXPECT_EQ(trimmed("\u200Bx\uFEFF"), "\u200Bx\uFEFF");
    EXPECT_EQ(trimmed(" \xA0x\x85 "), "\xA0x\x85");
}

TEST(TextTest, trimsBlanksOnlyToNothing) {
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed(" \u3000\n"), "");
}

TEST(TextTest, lowersLettersOfEveryScript) {
    EXPECT_EQ(lowercased("ROOTS Żółć ÄÖÜ ΑΒΓ ДЖ 123_[]"), "roots żółć äöü αβγ дж 123_[]");
    EXPECT_EQ(lowercased("A\xC5Z\xFF"), "a\xC5z\xFF");
}

TEST(TextTest, comparesWithoutRegardToCase) {
    EXPECT_TRUE(equalsIgnoringCase("Desk.Example", "dESK.eXAMPLE"));
    EXPECT_TRUE(equalsIgnoringCase("desk-ŻÓŁĆ", "DESK-żółć"));
    EXPECT_TRUE(equalsIgnoringCase("", ""));
    EXPECT_TRUE(equalsIgnoringCase("K", "\u212A"));  // the Kelvin sign
    EXPECT_FALSE(equalsIgnoringCase("desk", "desks"));
    EXPECT_FALSE(equalsIgnoringCase("a", "ą"));
    EXPECT_FALSE(equalsIgnoringCase("[", "{"));
}

TEST(TextTest, removesEverySlashAtTheEnd) {
    EXPECT_EQ(trimmedTrailingSlash("https://x///"), "https://x");
    EXPECT_EQ(trimmedTrailingSlash("/a/b"), "/a/b");
    EXPECT_EQ(trimmedTrailingSlash("/"), "");
    EXPECT_EQ(trimmedTrailingSlash(""), "");
}

TEST(TextTest, knowsValidUtf8) {
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("plain, żółć, 漢字, 😀"));
    EXPECT_TRUE(isValidUtf8(std::string_view("\0", 1)));
    EXPECT_TRUE(isValidUtf8("\uFFFE\uFFFF\U0010FFFF"));
    for (const std::string_view bad :
         {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
          "\xF0\x9F\x98", "a\xFFz", "\xF8\x88\x80\x80\x80"}) {
        EXPECT_FALSE(isValidUtf8(bad)) << testing::PrintToString(bad);
    }
}

TEST(TextTest, replacesEachInvalidByte) {
    EXPECT_EQ(replacingInvalidUtf8("żółć"), "żółć");
    EXPECT_EQ(replacingInvalidUtf8("a\xFFż\xC5"), "a\uFFFDż\uFFFD");
    EXPECT_EQ(replacingInvalidUtf8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(replacingInvalidUtf8(""), "");
}

TEST(TextTest, countsWhatPeopleSeeAsOneCharacter) {
    EXPECT_EQ(characterCount(""), 0U);
    EXPECT_EQ(characterCount("plain"), 5U);
    EXPECT_EQ(characterCount("żółć"), 4U);
    EXPECT_EQ(characterCount("z\u0307o\u0301"), 2U);      // marks that combine
    EXPECT_EQ(characterCount("👩🏽‍🚒"), 1U);     // a modifier and a joiner
    EXPECT_EQ(characterCount("🇵🇱🇵🇱"), 2U);                // flags are pairs of letters
    EXPECT_EQ(characterCount("a🇵🇱🇵b"), 4U);               // one without its second half
    EXPECT_EQ(characterCount("\u1112\u1161\u11AB"), 1U);  // Hangul syllables
    EXPECT_EQ(characterCount("a\r\nb"), 3U);
    EXPECT_EQ(characterCount("\r\n\r\n\n\r"), 4U);
    EXPECT_EQ(characterCount("plain text\r\nin\rlines\r\n"), 20U);
    EXPECT_EQ(characterCount("long plain text o\u0301 and more\u0301"), 26U);
    EXPECT_EQ(characterCount("e\u0301\r\n\u0301"), 3U);  // nothing combines with a line end
}

TEST(TextTest, countsAnInvalidByteAsACharacter) {
    EXPECT_EQ(characterCount("a\xFF\xFE\u0301"), 4U);
}

TEST(TextTest, aMegabyteOfMarksIsOneCharacter) {
    EXPECT_EQ(characterCount("a" + repeated("\u0301", 500'000)), 1U);
}

TEST(TextTest, filesLettersWithMarksBesideTheirBaseLetter) {
    EXPECT_THAT(inLocalizedOrder({"b", "ą", "a"}), ElementsAre("a", "ą", "b"));
    EXPECT_THAT(inLocalizedOrder({"m", "ł", "l"}), ElementsAre("l", "ł", "m"));
    EXPECT_THAT(inLocalizedOrder({"p", "ø", "ó", "o", "ö", "n"}),
                ElementsAre("n", "o", "ø", "ó", "ö", "p"));
    EXPECT_THAT(inLocalizedOrder({"af", "æ", "ad"}), ElementsAre("ad", "æ", "af"));
    EXPECT_THAT(inLocalizedOrder({"st", "ß", "sr"}), ElementsAre("sr", "ß", "st"));
}

TEST(TextTest, basesDecideBeforeMarks) {
    EXPECT_THAT(inLocalizedOrder({"łb", "lc", "la"}), ElementsAre("la", "łb", "lc"));
    EXPECT_THAT(inLocalizedOrder({"żaba", "zając", "Żaba 2", "zaba"}),
                ElementsAre("zaba", "żaba", "Żaba 2", "zając"));
}

TEST(TextTest, ignoresCaseAndBreaksTiesByBytes) {
    EXPECT_THAT(inLocalizedOrder({"b", "A", "a.txt", "B"}), ElementsAre("A", "a.txt", "B", "b"));
    EXPECT_GT(compareLocalized("a", "A"), 0);
    EXPECT_LT(compareLocalized("Ł", "ł"), 0);
    // Composed and decomposed look the same and are two names.
    EXPECT_NE(compareLocalized("ó", "o\u0301"), 0);
    EXPECT_EQ(compareLocalized("ó", "ó"), 0);
    EXPECT_EQ(compareLocalized("", ""), 0);
}

TEST(TextTest, putsPunctuationBeforeDigitsBeforeLetters) {
    EXPECT_THAT(inLocalizedOrder({"я", "a", "Z", "漢", "_x", "1", ".hidden", "~tmp", "ab", "a b"}),
                ElementsAre("_x", ".hidden", "~tmp", "1", "a", "a b", "ab", "Z", "я", "漢"));
}

TEST(TextTest, theOrderIsTotalEvenOverBadNames) {
    const std::vector<std::string> names = {
        "",     "a",       "A", "ą",  "\u0328", "\u0328a",  "a\u0328", "\xFF", "a\xFF",
        "\xC4", "a\xC4",   "z", "ż",  "\u200D", "a\u200D",  "ß",       "ss",   "ł",
        "l",    "l\u0301", "1", "١",  "-",      "–",        "\n",      "ﬁ",    "fi",
        "İ",    "i\u0307", "ı", "xż", "xź",     "xz\u0307", "xz",      "x"};
    for (const std::string& a : names) {
        for (const std::string& b : names) {
            EXPECT_EQ(compareLocalized(a, b) < 0, compareLocalized(b, a) > 0) << a << " " << b;
            EXPECT_EQ(compareLocalized(a, b) == 0, a == b) << a << " " << b;
            for (const std::string& c : names) {
                if (compareLocalized(a, b) < 0 && compareLocalized(b, c) < 0) {
                    EXPECT_LT(compareLocalized(a, c), 0) << a << " " << b << " " << c;
                }
            }
        }
    }
}

TEST(TextTest, splitsLines) {
    EXPECT_THAT(linesOf("a\n\nb\r\nc"), ElementsAre("a", "", "b", "c"));
    EXPECT_THAT(linesOf("a\n"), ElementsAre("a"));
    EXPECT_THAT(linesOf("\n"), ElementsAre(""));
    EXPECT_THAT(linesOf("a\rb\r"), ElementsAre("a\rb\r"));
    EXPECT_THAT(linesOf(""), IsEmpty());
}

}  // namespace
}  // namespace orv
