#include <gtest/gtest.h>

#include "WsparoCompanion/Printable.h"

namespace orv::companion {
namespace {

TEST(PrintableTest, leavesOrdinaryTextAsItIs) {
    EXPECT_EQ(printableLine("Zażółć „gęślą” 🖥️ <b>"), "Zażółć „gęślą” 🖥️ <b>");
    EXPECT_EQ(printableBlock("", "  "), "");
}

TEST(PrintableTest, keepsTerminalsFromObeyingStrangers) {
    EXPECT_EQ(printableLine("a\033[2Jb"), "a\uFFFD[2Jb");
    EXPECT_EQ(printableLine("a\x7F"), "a\uFFFD");
    EXPECT_EQ(printableLine("a\u009B2Jb"), "a\uFFFD2Jb");
    EXPECT_EQ(printableLine("a\u202Eb\u2066c"), "a\uFFFDb\uFFFDc");
    EXPECT_EQ(printableLine("a\xFFz"), "a\uFFFDz");
    EXPECT_EQ(printableLine("a\rb"), "a\uFFFDb");
    EXPECT_EQ(printableLine("\u00A0ż"), "\u00A0ż");
}

TEST(PrintableTest, keepsALineOnOneLine) {
    EXPECT_EQ(printableLine("a\nb\tc\r\nd"), "a b c d");
}

TEST(PrintableTest, indentsTheLinesThatFollow) {
    EXPECT_EQ(printableBlock("a\nb\r\nc\td", "  "), "a\n  b\n  c\td");
}

}  // namespace
}  // namespace orv::companion
