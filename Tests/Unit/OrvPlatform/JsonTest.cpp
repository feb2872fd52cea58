#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/Json.h"
#include "Support/ErrorText.h"

namespace orv {
namespace {

std::string nestedArrays(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JsonTest, readsJson) {
    const Json value = parseJson(R"( {"a": [1, -2.5, true, null, "ż\u0142\n"]} )");
    EXPECT_EQ(value["a"][0], 1);
    EXPECT_EQ(value["a"][1], -2.5);
    EXPECT_EQ(value["a"][4], "żł\n");
}

TEST(JsonTest, whatIsNoJsonIsADecodingErrorThatQuotesNothing) {
    for (const std::string_view bad :
         {"", " ", "{", "[1,]", "{\"a\":secret}", "nul", "'a'", "{} {}", "\"\x01\"", "\"\xC5\"",
          "\"\\ud800\"", "[1e999]", "[-1e999]", "01", "+1", ".5", "NaN"}) {
        EXPECT_THROW(parseJson(bad), DecodingError) << bad;
    }
    EXPECT_EQ(errorOf<DecodingError>([] { parseJson("{\"a\":secret}"); }),
              "Not valid JSON at byte 6.");
    EXPECT_EQ(errorOf<DecodingError>([] { parseJson("[1e999]"); }),
              "A number in the JSON is too large.");
    EXPECT_THROW(parseJson(std::string_view("{}\0", 3)), DecodingError);
}

TEST(JsonTest, nestingEndsAt512Levels) {
    EXPECT_NO_THROW(parseJson(nestedArrays(512)));
    EXPECT_EQ(errorOf<DecodingError>([] { parseJson(nestedArrays(513)); }),
              "JSON nested deeper than 512 levels.");
    EXPECT_THROW(parseJson(nestedArrays(10'000)), DecodingError);
    EXPECT_THROW(parseJson(std::string(1'000'000, '[')), DecodingError);
    std::string objects;
    for (int i = 0; i < 513; ++i)
        objects += "{\"a\":";
    EXPECT_EQ(errorOf<DecodingError>([&] { parseJson(objects); }),
              "JSON nested deeper than 512 levels.");
}

TEST(JsonTest, everyKindOfValueIsKeptWhereItStands) {
    for (const std::string_view text :
         {"null", "true", "\"t\"", "-7", "18446744073709551615", "1.5e300", "[]", "{}",
          "[[],{},[[1]]]",
          R"({"a": {"b": [1, {"c": null}], "d": false}, "": [{}, {"a": "b"}, "x"]})",
          R"({"a": [1, 2], "b": 1, "a": {"last": "counts"}})", R"([{"a": 1, "a": [2]}, 0.25])"}) {
        EXPECT_EQ(parseJson(text), Json::parse(text)) << text;
    }
}

TEST(JsonTest, itemsThatAreNotWantedAreNotKept) {
    std::vector<std::string> asked;
    const WantsMoreItems twoOfEach = [&](const std::string& key, const Json& itemsSoFar) {
        asked.push_back(key + itemsSoFar.back().dump());
        return itemsSoFar.size() < 2;
    };
    const Json value = parseJson(R"({"a": [1, {"x": [7, 8, 9]}, {"y": [[]]}, "z", null],
                                     "b": {"c": [1, 2, 3]}, "d": [[4], [5], [6]], "e": []})",
                                 twoOfEach);
    EXPECT_EQ(value, parseJson(R"({"a": [1, {"x": [7, 8, 9]}],
                                   "b": {"c": [1, 2, 3]}, "d": [[4], [5]], "e": []})"));
    EXPECT_EQ(asked, (std::vector<std::string>{"a1", R"(a{"x":[7,8,9]})", "d[4]", "d[5]"}));
    EXPECT_EQ(parseJson("[[1, 2, 3]]", twoOfEach), Json({{1, 2, 3}}));
}

TEST(JsonTest, itemsThatAreNotWantedMustBeCorrect) {
    const WantsMoreItems oneOfEach = [](const std::string&, const Json&) { return false; };
    const auto errorBehindFirst = [&](const std::string& item) {
        return errorOf<DecodingError>([&] { parseJson("{\"a\":[1," + item + "]}", oneOfEach); });
    };
    EXPECT_EQ(errorBehindFirst("2"), "no error");
    EXPECT_EQ(errorBehindFirst("secret"), "Not valid JSON at byte 9.");
    EXPECT_EQ(errorBehindFirst("\"\xC5\""), "Not valid JSON at byte 11.");
    EXPECT_EQ(errorBehindFirst("1e999"), "A number in the JSON is too large.");
    EXPECT_EQ(errorBehindFirst("{\"b\":2"), "Not valid JSON at byte 15.");
    EXPECT_EQ(errorBehindFirst(nestedArrays(510)), "no error");
    EXPECT_EQ(errorBehindFirst(nestedArrays(511)), "JSON nested deeper than 512 levels.");
}

TEST(JsonTest, bracketsInTextsAreNoNesting) {
    const std::string brackets(600, '[');
    EXPECT_EQ(parseJson("\"" + brackets + "\\\"" + brackets + "\""), brackets + "\"" + brackets);
    EXPECT_THROW(parseJson("[\"\\\\\"," + nestedArrays(512) + "]"), DecodingError);
}

TEST(JsonTest, manyNeighboursAreNoNesting) {
    std::string text = "[";
    for (int i = 0; i < 1000; ++i)
        text += "[],";
    EXPECT_EQ(parseJson(text + "[]]").size(), 1001U);
}

TEST(JsonTest, filesArePrettyWithSortedKeys) {
    EXPECT_EQ(prettyJson(Json{{"b", 1}, {"a", {{"z", "ż"}, {"y", Json::array()}}}}),
              "{\n  \"a\": {\n    \"y\": [],\n    \"z\": \"ż\"\n  },\n  \"b\": 1\n}\n");
}

TEST(JsonTest, theWireIsOneLineAndValidUtf8) {
    EXPECT_EQ(compactJson(Json{{"b", "x\ny"}, {"a", "\xC5|\xFF"}}),
              "{\"a\":\"\uFFFD|\uFFFD\",\"b\":\"x\\ny\"}");
}

TEST(JsonTest, anIntegerIsWrittenWithoutFractionAndFits64Bits) {
    EXPECT_EQ(integerValue(parseJson("42")), 42);
    EXPECT_EQ(integerValue(parseJson("9223372036854775807")),
              std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(integerValue(parseJson("-9223372036854775808")),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(integerValue(parseJson("-0")), 0);
    for (const char* other :
         {"9223372036854775808", "-9223372036854775809", "18446744073709551615",
          "18446744073709551616", "1.0", "1e2", "true", "\"1\"", "null", "[]", "{}"}) {
        EXPECT_EQ(integerValue(parseJson(other)), std::nullopt) << other;
    }
}

TEST(JsonTest, requiredKeysMustBeThereAndOfTheirType) {
    const Json object = parseJson(R"({"t": "x", "i": 7, "b": false, "n": null})");
    EXPECT_EQ(requiredText(object, "t"), "x");
    EXPECT_EQ(requiredInteger(object, "i"), 7);
    EXPECT_FALSE(requiredBool(object, "b"));
    EXPECT_EQ(errorOf<DecodingError>([&] { requiredText(object, "x"); }),
              "The key \"x\" is missing.");
    EXPECT_EQ(errorOf<DecodingError>([&] { requiredText(object, "i"); }),
              "The value of \"i\" is not a text.");
    EXPECT_EQ(errorOf<DecodingError>([&] { requiredText(object, "n"); }),
              "The value of \"n\" is not a text.");
    EXPECT_EQ(errorOf<DecodingError>([&] { requiredInteger(object, "b"); }),
              "The value of \"b\" is not a 64-bit integer.");
    EXPECT_EQ(errorOf<DecodingError>([&] { requiredBool(object, "i"); }),
              "The value of \"i\" is not a Boolean.");
    EXPECT_EQ(errorOf<DecodingError>([] { requiredText(Json::array(), "t"); }),
              "A JSON object was expected.");
}

TEST(JsonTest, optionalKeysMayBeMissingOrNullButNotOfAnotherType) {
    const Json object = parseJson(R"({"t": "x", "i": 7, "b": true, "n": null})");
    EXPECT_EQ(optionalText(object, "t"), "x");
    EXPECT_EQ(optionalInteger(object, "i"), 7);
    EXPECT_EQ(optionalBool(object, "b"), true);
    for (const char* absent : {"n", "x"}) {
        EXPECT_EQ(optionalText(object, absent), std::nullopt);
        EXPECT_EQ(optionalInteger(object, absent), std::nullopt);
        EXPECT_EQ(optionalBool(object, absent), std::nullopt);
    }
    EXPECT_THROW(optionalText(object, "i"), DecodingError);
    EXPECT_THROW(optionalInteger(object, "t"), DecodingError);
    EXPECT_THROW(optionalBool(object, "i"), DecodingError);
    EXPECT_THROW(optionalText("text", "i"), DecodingError);
}

TEST(JsonTest, aTextIfPresentNeverThrows) {
    const Json object = parseJson(R"({"t": "x", "i": 7, "n": null})");
    EXPECT_EQ(textIfPresent(object, "t"), "x");
    for (const char* other : {"i", "n", "missing"}) {
        EXPECT_EQ(textIfPresent(object, other), std::nullopt);
    }
    EXPECT_EQ(textIfPresent(Json::array(), "t"), std::nullopt);
}

}  // namespace
}  // namespace orv
