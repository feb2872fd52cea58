#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Base64.h"

namespace orv {
namespace {

std::string encoded(std::string_view bytes) {
    std::string out;
    appendBase64(out, bytes);
    return out;
}

TEST(Base64Test, encodesTheKnownExamples) {
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("f"), "Zg==");
    EXPECT_EQ(encoded("fo"), "Zm8=");
    EXPECT_EQ(encoded("foo"), "Zm9v");
    EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encoded(std::string_view("\0\xff\xfb", 3)), "AP/7");
}

TEST(Base64Test, appendsPiecesWithoutLineBreaks) {
    const std::string bytes(9000, 'x');
    std::string out = "before ";
    appendBase64(out, std::string_view(bytes).substr(0, 3000));
    appendBase64(out, std::string_view(bytes).substr(3000));
    EXPECT_EQ(out, "before " + encoded(bytes));
    EXPECT_EQ(out.size(), 7 + base64EncodedSize(bytes.size()));
    EXPECT_EQ(out.find('\n'), std::string::npos);
}

TEST(Base64Test, decodesWhatItEncoded) {
    std::string bytes;
    for (int i = 0; i < 257; ++i) {
        EXPECT_EQ(decodeBase64(encoded(bytes)), bytes);
        bytes.push_back(static_cast<char>(i));
    }
    EXPECT_EQ(decodeBase64(""), "");
}

TEST(Base64Test, refusesEverythingThatIsNotStrict) {
    for (const char* text : {"Zg",    "Zg=",          "Z",        "Zm8",  "Zg==\n",   "Zm9v\nZm9v",
                             " Zm9v", "Zm9v ",        "Zm 9",     "_-8=", "Zm9v====", "=",
                             "==",    "====",         "Zg=a",     "Z===", "Zh==",     "Zm9=",
                             "Zm9v=", "Zm9vZg==Zm9v", "Zm9v\xff", "a\0bc"}) {
        EXPECT_EQ(decodeBase64(text), std::nullopt) << text;
    }
    EXPECT_EQ(decodeBase64(std::string_view("Zm9\0", 4)), std::nullopt);
}

}  // namespace
}  // namespace orv
