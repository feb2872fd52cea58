#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/SystemFacts.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* vmStat =
    "Mach Virtual Memory Statistics: (page size of 16384 bytes)\n"
    "Pages free:                               20011.\n"
    "Pages active:                            100000.\n"
    "Pages inactive:                           90000.\n"
    "Pages wired down:                         30000.\n"
    "\"Translation faults\":                 123456789.\n"
    "Pages stored in compressor:               55555.\n"
    "Pages occupied by compressor:              2000.\n";

TEST(FirstMatchIntegerTest, readsTheWholeNumberAfterTheLabel) {
    EXPECT_EQ(firstMatchInteger("a 1 label:   42. 43", "label"), 42);
    EXPECT_EQ(firstMatchInteger("label none", "label"), std::nullopt);
    EXPECT_EQ(firstMatchInteger("42", "label"), std::nullopt);
    EXPECT_EQ(firstMatchInteger("label 99999999999999999999", "label"), std::nullopt);
    EXPECT_EQ(firstMatchInteger("", ""), std::nullopt);
}

TEST(SysctlValueTest, takesWhatFollowsTheKey) {
    EXPECT_EQ(sysctlValue("hw.model: Mac15,3", "hw.model"), "Mac15,3");
    EXPECT_EQ(sysctlValue("hw.model = Mac15,3", "hw.model"), "Mac15,3");
    EXPECT_EQ(sysctlValue("warning\nhw.model:  Mac15,3 \n", "hw.model"), "Mac15,3");
    EXPECT_EQ(sysctlValue("hw.modelname: x", "hw.model"), "");
    EXPECT_EQ(sysctlValue("unbekannte OID", "hw.model"), "");
    EXPECT_EQ(sysctlValue("", "hw.model"), "");
}

TEST(BootTimeTest, isTheNumberOfSeconds) {
    EXPECT_EQ(parseBootTime("{ sec = 1772300000, usec = 12 } Sat Feb 28 18:33:20 2026"),
              WallTime(1772300000s));
    for (const char* answer :
         {"", "{ sec = }", "{ sec = 0, usec = 0 }", "{ sec = 9223372036854775807 }"}) {
        EXPECT_EQ(parseBootTime(answer), std::nullopt) << answer;
    }
}

TEST(UptimeTest, isWholeSecondsAndNeverNegative) {
    EXPECT_EQ(uptimeSeconds(WallTime(100s), WallTime(161999ms)), 61);
    EXPECT_EQ(uptimeSeconds(WallTime(100s), WallTime(50s)), 0);
    EXPECT_EQ(uptimeSeconds(std::nullopt, WallTime(50s)), 0);
}

TEST(MemoryUsageTest, countsActiveWiredAndCompressedPages) {
    EXPECT_EQ(memoryUsage(vmStat), 132000LL * 16384);
}

TEST(MemoryUsageTest, takesAMissingCountAsZero) {
    EXPECT_EQ(memoryUsage("page size of 4096 bytes\nPages active: 3.\n"), 3 * 4096);
    EXPECT_EQ(memoryUsage("page size of 4096 bytes"), 0);
}

TEST(MemoryUsageTest, isUnknownWithoutAnAnswerOrBeyondAllBounds) {
    EXPECT_EQ(memoryUsage(""), std::nullopt);
    EXPECT_EQ(memoryUsage("Seiten aktiv: 7"), std::nullopt);
    EXPECT_EQ(memoryUsage("page size of 4611686018427387904\nPages active: 4"), std::nullopt);
}

TEST(LoadPercentTest, dividesByTheProcessorsAndRoundsToOneDecimal) {
    EXPECT_DOUBLE_EQ(cpuLoadPercent(2.0, 8), 25.0);
    EXPECT_DOUBLE_EQ(cpuLoadPercent(1.0, 3), 33.3);
    EXPECT_DOUBLE_EQ(cpuLoadPercent(40.0, 8), 100.0);
    EXPECT_DOUBLE_EQ(cpuLoadPercent(std::nullopt, 8), 0.0);
    EXPECT_DOUBLE_EQ(cpuLoadPercent(1.0, 0), 100.0);
}

TEST(MacAddressesTest, areTheWordsAfterEther) {
    EXPECT_THAT(macAddresses("en0: flags=8863<UP> mtu 1500\n\tether a4:83:e7:00:00:01 \n"
                             "\tinet 192.0.2.17 netmask 0xffffff00\n"
                             "en1: flags=8863<UP>\n\tether a4:83:e7:00:00:02\n"
                             "bridge0:\n\tether a4:83:e7:00:00:01\n\tether "),
                ElementsAre("a4:83:e7:00:00:01", "a4:83:e7:00:00:02"));
    EXPECT_THAT(macAddresses("Schnittstelle nicht gefunden"), IsEmpty());
}

class OsBuildTest : public AuditFixture {
protected:
    static constexpr const char* path = "/System/Library/CoreServices/SystemVersion.plist";
};

TEST_F(OsBuildTest, isReadFromTheSystemsVersionFile) {
    file(path,
         "<plist version=\"1.0\"><dict><key>ProductBuildVersion</key><string>24F74</string>"
         "</dict></plist>");
    EXPECT_EQ(osBuild(root), "24F74");
}

TEST_F(OsBuildTest, isEmptyWhenUnknown) {
    EXPECT_EQ(osBuild(root), "");
    file(path, "damaged");
    EXPECT_EQ(osBuild(root), "");
    file(path,
         "<plist version=\"1.0\"><dict><key>ProductBuildVersion</key><integer>1</integer>"
         "</dict></plist>");
    EXPECT_EQ(osBuild(root), "");
}

}  // namespace
}  // namespace orv
