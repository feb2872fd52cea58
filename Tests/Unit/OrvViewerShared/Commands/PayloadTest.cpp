#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/Json.h"
#include "OrvViewerShared/Commands/Payload.h"

namespace orv {
namespace {

std::int64_t intOf(const char* json, std::int64_t defaultValue = 5, std::int64_t min = 1,
                   std::int64_t max = 100) {
    return payloadInt(parseJson(json), defaultValue, min, max);
}

bool boolOf(const char* json, bool defaultValue) {
    return payloadBool(parseJson(json), defaultValue);
}

TEST(PayloadIntTest, clampsIntegers) {
    EXPECT_EQ(intOf("7"), 7);
    EXPECT_EQ(intOf("0"), 1);
    EXPECT_EQ(intOf("-3"), 1);
    EXPECT_EQ(intOf("1000"), 100);
    EXPECT_EQ(intOf("9223372036854775807"), 100);
    EXPECT_EQ(intOf("-9223372036854775808"), 1);
}

TEST(PayloadIntTest, readsTextsOfDigits) {
    EXPECT_EQ(intOf(R"("45")"), 45);
    EXPECT_EQ(intOf(R"("+42")", 5, 1, 10), 10);
    EXPECT_EQ(intOf(R"("-42")", 5, -100, 100), -42);
    EXPECT_EQ(intOf(R"("007")"), 7);
    EXPECT_EQ(intOf(R"("-9223372036854775808")"), 1);
}

TEST(PayloadIntTest, everythingElseIsTheDefault) {
    for (const char* json : {"null",
                             "true",
                             "false",
                             "[]",
                             "[7]",
                             "{}",
                             "7.0",
                             "7.5",
                             "1e1",
                             "9223372036854775808",
                             "-9223372036854775809",
                             R"("")",
                             R"("+")",
                             R"("-")",
                             R"("+-7")",
                             R"("-+7")",
                             R"("++7")",
                             R"(" 7")",
                             R"("7 ")",
                             R"("7\n")",
                             R"("abc")",
                             R"("7a")",
                             R"("0x7")",
                             R"("7.0")",
                             R"("1e1")",
                             R"("7\u0000")",
                             R"("٧")",
                             R"("9223372036854775808")",
                             R"("99999999999999999999999999")"}) {
        EXPECT_EQ(intOf(json), 5) << json;
    }
}

TEST(PayloadIntTest, theDefaultIsClampedToo) {
    EXPECT_EQ(intOf(R"("abc")", 0), 1);
    EXPECT_EQ(intOf("null", 1000), 100);
}

TEST(PayloadBoolTest, aBooleanIsItself) {
    EXPECT_TRUE(boolOf("true", false));
    EXPECT_FALSE(boolOf("false", true));
}

TEST(PayloadBoolTest, fourWordsAreTrueInAnyCase) {
    for (const char* json :
         {R"("1")", R"("true")", R"("TRUE")", R"("yes")", R"("YES")", R"("On")"}) {
        EXPECT_TRUE(boolOf(json, false)) << json;
    }
}

TEST(PayloadBoolTest, anyOtherTextIsFalseWhateverTheDefault) {
    for (const char* json : {R"("no")", R"(" yes")", R"("yes ")", R"("")", R"("0")", R"("y")"}) {
        EXPECT_FALSE(boolOf(json, true)) << json;
    }
}

TEST(PayloadBoolTest, everythingElseIsTheDefault) {
    for (const char* json : {"null", "1", "0", "1.0", "[]", "[true]", "{}"}) {
        EXPECT_TRUE(boolOf(json, true)) << json;
        EXPECT_FALSE(boolOf(json, false)) << json;
    }
}

TEST(PayloadValueTest, whatIsNotThereIsNull) {
    EXPECT_EQ(payloadValue(parseJson(R"({"a": 1})"), "a"), Json(1));
    EXPECT_TRUE(payloadValue(parseJson(R"({"a": 1})"), "b").is_null());
    EXPECT_TRUE(payloadValue(parseJson("[1]"), "a").is_null());
    EXPECT_TRUE(payloadValue(parseJson("null"), "a").is_null());
}

}  // namespace
}  // namespace orv
