#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/PropertyList.h"
#include "Support/ErrorText.h"

namespace orv {
namespace {

std::string bigEndian(std::uint64_t value, int size) {
    std::string bytes;
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>(value >> shift));
    }
    return bytes;
}

/// Puts a binary list together from objects as they are; references are single bytes.
class BinaryList {
public:
    /// Returns the object's reference.
    char add(const std::string& object) {
        objects.push_back(object);
        return static_cast<char>(objects.size() - 1);
    }

    std::string bytes(std::uint64_t top) const {
        std::string result = "bplist00";
        std::string table;
        for (const std::string& object : objects) {
            table += bigEndian(result.size(), 2);
            result += object;
        }
        const std::uint64_t tableOffset = result.size();
        return result + table + std::string(6, '\0') + "\x02\x01" + bigEndian(objects.size(), 8) +
               bigEndian(top, 8) + bigEndian(tableOffset, 8);
    }

private:
    std::vector<std::string> objects;
};

std::string head(unsigned kind, std::size_t count) {
    if (count < 15) return std::string(1, static_cast<char>(kind << 4 | count));
    return std::string(1, static_cast<char>(kind << 4 | 15)) + "\x11" + bigEndian(count, 2);
}

std::string asciiObject(const std::string& text) {
    return head(5, text.size()) + text;
}

std::string realObject(char marker, double value) {
    return marker + bigEndian(std::bit_cast<std::uint64_t>(value), 8);
}

/// Lists in each other down to a text; the text is the innermost level.
std::string nestedBinary(unsigned arrays) {
    std::string result = "bplist00";
    std::string table;
    for (unsigned i = 0; i < arrays; ++i) {
        table += bigEndian(result.size(), 4);
        result += "\xA1" + bigEndian(i + 1, 2);
    }
    table += bigEndian(result.size(), 4);
    result += asciiObject("x");
    const std::uint64_t tableOffset = result.size();
    return result + table + std::string(6, '\0') + "\x04\x02" + bigEndian(arrays + 1, 8) +
           bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

std::string xmlDocument(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">" +
           content + "</plist>\n";
}

std::string nestedXml(unsigned arrays) {
    std::string open;
    std::string close;
    for (unsigned i = 0; i < arrays; ++i) {
        open += "<array>";
        close += "</array>";
    }
    return xmlDocument(open + "<string>x</string>" + close);
}

std::string sampleXml() {
    return xmlDocument(R"(
        <dict>
            <key>text</key><string>a &amp; b &lt;&#x142;&gt;</string>
            <key>żółć</key><string>zażółć 😀</string>
            <key>empty</key><string></string>
            <key>integer</key><integer>42</integer>
            <key>negative</key><integer>-7</integer>
            <key>large</key><integer>9223372036854775807</integer>
            <key>real</key><real>2.5</real>
            <key>yes</key><true/>
            <key>no</key><false/>
            <key>date</key><date>2026-03-01T09:15:02Z</date>
            <key>data</key><data>
                AAEC
                /w==
            </data>
            <key>array</key><array><string>x</string><array/><dict/></array>
        </dict>)");
}

std::string sampleBinary() {
    BinaryList list;
    const std::string utf16Key = head(6, 4) + std::string("\x01\x7C\x00\xF3\x01\x42\x01\x07", 8);
    const std::string utf16Text =
        head(6, 9) + std::string("\0z\0a\x01\x7C\0\xF3\x01\x42\x01\x07\0 \xD8\x3D\xDE\0", 18);
    const char x = list.add(asciiObject("x"));
    const char emptyArray = list.add(head(0xA, 0));
    const char emptyDictionary = list.add(head(0xD, 0));
    const std::vector<std::pair<std::string, std::string>> entries = {
        {asciiObject("text"), head(6, 9) + std::string("\0a\0 \0&\0 \0b\0 \0<\x01\x42\0>", 18)},
        {utf16Key, utf16Text},
        {asciiObject("empty"), head(5, 0)},
        {asciiObject("integer"), std::string("\x10\x2A", 2)},
        {asciiObject("negative"), "\x13" + bigEndian(static_cast<std::uint64_t>(-7), 8)},
        {asciiObject("large"), "\x13" + bigEndian(INT64_MAX, 8)},
        {asciiObject("real"), realObject('\x23', 2.5)},
        {asciiObject("yes"), "\x09"},
        {asciiObject("no"), "\x08"},
        {asciiObject("date"), realObject('\x33', 794049302.75)},
        {asciiObject("data"), head(4, 4) + std::string("\x00\x01\x02\xFF", 4)},
        {asciiObject("array"), head(0xA, 3) + x + emptyArray + emptyDictionary}};
    std::string keys;
    std::string values;
    for (const auto& [key, value] : entries) {
        keys += list.add(key);
        values += list.add(value);
    }
    const char top = list.add(head(0xD, entries.size()) + keys + values);
    return list.bytes(static_cast<unsigned char>(top));
}

std::string refusal(const std::string& bytes) {
    return errorOf<DecodingError>([&] { parsePropertyList(bytes); });
}

struct Form {
    const char* name;
    std::string (*sample)();
    std::string (*nested)(unsigned arrays);
};

class PropertyListFormTest : public ::testing::TestWithParam<Form> {};

TEST_P(PropertyListFormTest, readsEveryKindOfValue) {
    const Json list = parsePropertyList(GetParam().sample());
    EXPECT_EQ(list["text"], "a & b <ł>");
    EXPECT_EQ(list["żółć"], "zażółć 😀");
    EXPECT_EQ(list["empty"], "");
    EXPECT_EQ(integerValue(list["integer"]), 42);
    EXPECT_EQ(integerValue(list["negative"]), -7);
    EXPECT_EQ(integerValue(list["large"]), INT64_MAX);
    EXPECT_EQ(list["real"], 2.5);
    EXPECT_TRUE(list["real"].is_number_float());
    EXPECT_EQ(list["yes"], true);
    EXPECT_EQ(list["no"], false);
    EXPECT_EQ(list["date"], "2026-03-01T09:15:02Z");
    EXPECT_EQ(list["data"], "AAEC/w==");
    EXPECT_EQ(list["array"], Json::parse(R"(["x", [], {}])"));
    EXPECT_EQ(list.size(), 12U);
}

TEST_P(PropertyListFormTest, nestingEndsAt512Levels) {
    EXPECT_NO_THROW(parsePropertyList(GetParam().nested(511)));
    for (const unsigned arrays : {513U, 5'000U, 60'000U}) {
        EXPECT_EQ(refusal(GetParam().nested(arrays)),
                  "A property list nested deeper than 512 levels.");
    }
}

TEST_P(PropertyListFormTest, cutOffAnywhereItIsAnError) {
    const std::string whole = GetParam().sample();
    const std::size_t contentEnd = whole.find_last_not_of('\n') + 1;
    for (std::size_t length = 0; length < contentEnd - sizeof "</plist>"; ++length) {
        EXPECT_THROW(parsePropertyList(whole.substr(0, length)), DecodingError) << length;
    }
}

TEST_P(PropertyListFormTest, damageNeverCrashes) {
    const std::string whole = GetParam().sample();
    std::mt19937 random(20260301);
    int refused = 0;
    for (int round = 0; round < 4'000; ++round) {
        std::string damaged = whole;
        for (unsigned count = 1 + random() % 4; count > 0; --count) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        try {
            compactJson(parsePropertyList(damaged));
        } catch (const DecodingError&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 100);
}

INSTANTIATE_TEST_SUITE_P(Forms, PropertyListFormTest,
                         ::testing::Values(Form{"xml", sampleXml, nestedXml},
                                           Form{"binary", sampleBinary, nestedBinary}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(PropertyListTest, bothFormsSayTheSame) {
    EXPECT_EQ(parsePropertyList(sampleXml()), parsePropertyList(sampleBinary()));
}

TEST(PropertyListTest, refusesWhatIsNoPropertyList) {
    const std::string neither = "Neither an XML nor a binary property list.";
    EXPECT_EQ(refusal(""), neither);
    EXPECT_EQ(refusal("{ a = 1; }"), neither);
    EXPECT_EQ(refusal("bplist"), neither);
    EXPECT_EQ(refusal(std::string(100, '\0')), neither);
    EXPECT_NE(refusal("<html><body/></html>"), "no error");
    EXPECT_NE(refusal("<plist/>"), "no error");
    EXPECT_NE(refusal("<?xml version=\"1.0\"?>"), "no error");
    EXPECT_EQ(refusal("<!-- "), "A cut-off XML property list.");
    EXPECT_EQ(refusal("bplist00"), "A damaged binary property list.");
    EXPECT_EQ(refusal(std::string((64 << 20) + 1, '<')), "A property list beyond 64 MiB.");
}

TEST(PropertyListTest, xmlMayBeginWithAByteOrderMarkOrBlanks) {
    EXPECT_EQ(parsePropertyList("\xEF\xBB\xBF" + sampleXml())["integer"], 42);
    EXPECT_EQ(parsePropertyList("\n <plist><string>x</string></plist>"), "x");
}

TEST(PropertyListTest, commentsNeitherOpenNorCloseLevels) {
    EXPECT_EQ(parsePropertyList(xmlDocument("<!-- <array> > --><string>x</string>")), "x");
    std::string nested;
    for (int i = 0; i < 600; ++i)
        nested += "<array><!-- </array> -->";
    EXPECT_EQ(refusal(xmlDocument(nested)), "A property list nested deeper than 512 levels.");
    std::string many = "<array>";
    for (int i = 0; i < 600; ++i)
        many += "<array/><dict></dict><!-- <array> -->";
    EXPECT_EQ(parsePropertyList(xmlDocument(many + "</array>")).size(), 1200U);
}

TEST(PropertyListTest, aListWithinItselfIsRefused) {
    BinaryList itself;
    itself.add(std::string("\xA1\x00", 2));
    EXPECT_EQ(refusal(itself.bytes(0)), "A property list within itself.");
    BinaryList roundabout;
    roundabout.add("\xA1\x01");
    roundabout.add(std::string("\xA1\x00", 2));
    EXPECT_EQ(refusal(roundabout.bytes(0)), "A property list within itself.");
}

TEST(PropertyListTest, sharedObjectsAreReadButMayNotUnfoldWithoutEnd) {
    BinaryList shared;
    shared.add("\xA2\x01\x01");
    shared.add(asciiObject("x"));
    EXPECT_EQ(parsePropertyList(shared.bytes(0)), Json::parse(R"(["x", "x"])"));

    BinaryList doubling;
    for (int level = 0; level < 60; ++level) {
        const char next = static_cast<char>(level + 1);
        doubling.add(std::string("\xA2") + next + next);
    }
    doubling.add(asciiObject("x"));
    EXPECT_EQ(refusal(doubling.bytes(0)), "A property list that unfolds beyond 64 MiB.");
}

TEST(PropertyListTest, refusesBinaryListsThatPointOutsideThemselves) {
    const std::string damaged = "A damaged binary property list.";
    const auto listOf = [](const std::string& object) {
        BinaryList list;
        list.add(object);
        return list.bytes(0);
    };
    EXPECT_EQ(refusal(listOf("\xA1\x07")), damaged);                        // no such object
    EXPECT_EQ(refusal(listOf("\x5F\x13" + bigEndian(~0ULL, 8))), damaged);  // a length of 2^64 - 1
    EXPECT_EQ(refusal(listOf("\x6F\x13" + bigEndian(~0ULL, 8))), damaged);
    EXPECT_EQ(refusal(listOf("\xAF\x13" + bigEndian(~0ULL, 8))), damaged);
    EXPECT_EQ(refusal(listOf("\xDF\x13" + bigEndian(1ULL << 63, 8))), damaged);
    EXPECT_EQ(refusal(listOf("\x53"
                             "ab")),
              damaged);
    EXPECT_EQ(refusal(listOf("\x70")), damaged);  // no such kind
    BinaryList oneText;
    oneText.add(asciiObject("x"));
    EXPECT_EQ(refusal(oneText.bytes(1)), damaged);
    std::string bytes = oneText.bytes(0);
    bytes.replace(bytes.size() - 8, 8, bigEndian(~0ULL, 8));  // the table's offset
    EXPECT_EQ(refusal(bytes), damaged);
    bytes = oneText.bytes(0);
    bytes.replace(bytes.size() - 24, 8, bigEndian(1ULL << 61, 8));  // the number of objects
    EXPECT_EQ(refusal(bytes), damaged);
}

TEST(PropertyListTest, aKeyIsATextWithoutNul) {
    for (const std::string& key : {std::string("\x09"), std::string("\x53\0ab", 4),
                                   std::string("\x62\0a\0\0", 5), std::string("\xA0")}) {
        BinaryList list;
        list.add("\xD1\x01\x02");
        list.add(key);
        list.add("\x09");
        EXPECT_EQ(refusal(list.bytes(0)), "A damaged binary property list.");
    }
    const std::string nul(1, '\0');
    EXPECT_EQ(refusal(xmlDocument("<dict><key>a" + nul + "</key><true/></dict>")),
              "A NUL in an XML text.");
    for (const char* spelling : {"&#0;", "&#x0;", "&#000;"}) {
        const std::string key = std::string("<key>a") + spelling + "b</key>";
        refusal(xmlDocument("<dict>" + key + "<true/></dict>"));  // whatever it says, it must live
    }
}

TEST(PropertyListTest, datesFarOffStayDates) {
    for (const double seconds : {1e300, -1e300, 63'113'904'000.0}) {
        BinaryList list;
        list.add(realObject('\x33', seconds));
        const Json date = parsePropertyList(list.bytes(0));
        EXPECT_TRUE(date.is_string() && parseIso8601(date.get<std::string>())) << date;
    }
}

TEST(PropertyListTest, writesXmlWithSortedKeys) {
    const Json job = {{"Label", "a & b"},
                      {"ProgramArguments", {"/bin/sh", "<x>"}},
                      {"Empty", Json::array()},
                      {"Nothing", Json::object()},
                      {"Inner", {{"z", 1}, {"a", -2.5}}},
                      {"RunAtLoad", true},
                      {"KeepAlive", false}};
    EXPECT_EQ(xmlPropertyList(job),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
              "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n"
              "<dict>\n"
              "\t<key>Empty</key>\n"
              "\t<array/>\n"
              "\t<key>Inner</key>\n"
              "\t<dict>\n"
              "\t\t<key>a</key>\n"
              "\t\t<real>-2.5</real>\n"
              "\t\t<key>z</key>\n"
              "\t\t<integer>1</integer>\n"
              "\t</dict>\n"
              "\t<key>KeepAlive</key>\n"
              "\t<false/>\n"
              "\t<key>Label</key>\n"
              "\t<string>a &amp; b</string>\n"
              "\t<key>Nothing</key>\n"
              "\t<dict/>\n"
              "\t<key>ProgramArguments</key>\n"
              "\t<array>\n"
              "\t\t<string>/bin/sh</string>\n"
              "\t\t<string>&lt;x&gt;</string>\n"
              "\t</array>\n"
              "\t<key>RunAtLoad</key>\n"
              "\t<true/>\n"
              "</dict>\n"
              "</plist>\n");
}

TEST(PropertyListTest, readsWhatItWrites) {
    const Json value = {{"<key> & \"quotes\"", "line\nline\r\ttab ]]> żółć 😀 &amp;"},
                        {"numbers", {0, -1, INT64_MAX, INT64_MIN, 0.1, 2.0, 1e300}},
                        {"blanks", "  kept  "},
                        {"deep", {{"a", {{"b", {true, false, "", Json::array()}}}}}}};
    EXPECT_EQ(parsePropertyList(xmlPropertyList(value)), value);
}

TEST(PropertyListTest, refusesToWriteWhatHasNoXmlForm) {
    EXPECT_THROW(xmlPropertyList(nullptr), std::invalid_argument);
    EXPECT_THROW(xmlPropertyList({{"a", {1, nullptr}}}), std::invalid_argument);
    EXPECT_THROW(xmlPropertyList(std::numeric_limits<double>::infinity()), std::invalid_argument);
    for (const std::string& bad :
         {std::string("\x01"), std::string(1, '\0'), std::string("\xFF")}) {
        EXPECT_THROW(xmlPropertyList({{"key", bad}}), std::invalid_argument);
        EXPECT_THROW(xmlPropertyList({{bad, "text"}}), std::invalid_argument);
    }
}

}  // namespace
}  // namespace orv
