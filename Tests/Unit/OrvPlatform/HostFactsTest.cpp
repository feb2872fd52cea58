#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/PropertyList.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using ::testing::Each;
using ::testing::Not;
using ::testing::StartsWith;

TEST(HostFactsTest, versionsHaveThreeNumbers) {
    EXPECT_EQ(threePartVersion("14.5"), "14.5.0");
    EXPECT_EQ(threePartVersion("14.5.1"), "14.5.1");
    EXPECT_EQ(threePartVersion("15"), "15.0.0");
    EXPECT_EQ(threePartVersion("6.1.0-23-amd64"), "6.1.0");
    EXPECT_EQ(threePartVersion("5.10-rc1"), "5.10.0");
    EXPECT_EQ(threePartVersion("1.2.3.4"), "1.2.3");
    EXPECT_EQ(threePartVersion("1.x.3"), "1.0.0");
    EXPECT_EQ(threePartVersion("99999999999.1"), "0.0.0");
    EXPECT_EQ(threePartVersion(""), "0.0.0");
}

TEST(HostFactsTest, theMachineWeRunOnHasPlausibleFacts) {
    const SystemHostFacts facts;
    char name[256] = {};
    ASSERT_EQ(::gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(facts.hostName(), name);
    EXPECT_NE(facts.computerName(), "");
    EXPECT_GE(facts.processorCount(), facts.activeProcessorCount());
    EXPECT_GE(facts.activeProcessorCount(), 1U);
    EXPECT_GT(facts.physicalMemoryBytes(), 64ULL << 20);
    EXPECT_LT(facts.physicalMemoryBytes(), 1ULL << 50);
    ASSERT_TRUE(facts.oneMinuteLoad());
    EXPECT_GE(*facts.oneMinuteLoad(), 0);
    EXPECT_EQ(threePartVersion(facts.systemVersion()), facts.systemVersion());
    EXPECT_THAT(facts.systemVersion(), Not(StartsWith("0.")));
}

TEST(HostFactsTest, addressesAreNumericWithoutScopeAndWithoutTheIpv4Loopback) {
    const std::vector<std::string> addresses = SystemHostFacts().ipAddresses();
    EXPECT_THAT(addresses, Each(Not(StartsWith("127."))));
    for (const std::string& address : addresses) {
        in_addr ipv4{};
        in6_addr ipv6{};
        EXPECT_TRUE(::inet_pton(AF_INET, address.c_str(), &ipv4) == 1 ||
                    ::inet_pton(AF_INET6, address.c_str(), &ipv6) == 1)
            << address;
    }
}

/// A folder that stands for another machine.
class RelocatedHostFactsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (fileExists("/System/Library/CoreServices")) GTEST_SKIP() << "the Mac asks itself";
    }

    void plant(const std::string& path, const std::string& content) {
        createDirectories(parentPath(folder.path() + path));
        writeFileAtomically(folder.path() + path, content);
    }

    TemporaryDirectory folder;
    SystemHostFacts facts{SystemRoot(folder.path())};
};

TEST_F(RelocatedHostFactsTest, readsWhatIsBelowTheRoot) {
    plant("/sys/class/dmi/id/product_serial", "C02ABCDEFGH1\n");
    plant("/sys/class/dmi/id/product_uuid", "0A1B2C3D-0000-1111-2222-333344445555\n");
    plant("/etc/machine-id", "00112233445566778899aabbccddeeff\n");
    plant("/etc/hostname", " mac.local\n");
    plant("/etc/machine-info", "CHASSIS=laptop\nPRETTY_HOSTNAME=\"Mac Żanety\"\n");
    plant("/System/Library/CoreServices/SystemVersion.plist",
          xmlPropertyList({{"ProductVersion", "14.5"}}));
    EXPECT_EQ(facts.serialNumber(), "C02ABCDEFGH1");
    EXPECT_EQ(facts.platformUuid(), "0A1B2C3D-0000-1111-2222-333344445555");
    EXPECT_EQ(facts.hostName(), "mac.local");
    EXPECT_EQ(facts.computerName(), "Mac Żanety");
    EXPECT_EQ(facts.systemVersion(), "14.5.0");
}

TEST_F(RelocatedHostFactsTest, theMachineIdStandsInForTheUuid) {
    plant("/etc/machine-id", "00112233445566778899aabbccddeeff\n");
    EXPECT_EQ(facts.platformUuid(), "00112233445566778899aabbccddeeff");
}

TEST_F(RelocatedHostFactsTest, aMachineWithoutAPrettyNameGoesByItsHostName) {
    plant("/etc/hostname", "mac.local\n");
    EXPECT_EQ(facts.computerName(), "mac.local");
    plant("/etc/machine-info", "PRETTY_HOSTNAME_X=other\nPRETTY_HOSTNAME=\"\"\n");
    EXPECT_EQ(facts.computerName(), "mac.local");
    plant("/etc/machine-info", "PRETTY_HOSTNAME=plain\n");
    EXPECT_EQ(facts.computerName(), "plain");
}

TEST_F(RelocatedHostFactsTest, anEmptyRootTellsNothingAboutTheMachineItself) {
    EXPECT_EQ(facts.serialNumber(), std::nullopt);
    EXPECT_EQ(facts.platformUuid(), std::nullopt);
    EXPECT_FALSE(facts.consoleUser());
    EXPECT_EQ(facts.hostName(), SystemHostFacts().hostName());
    EXPECT_NE(facts.systemVersion(), "");
}

TEST_F(RelocatedHostFactsTest, blankOrStrangeFilesAreUnknown) {
    plant("/sys/class/dmi/id/product_serial", " \n");
    createDirectories(folder.path() + "/sys/class/dmi/id/product_uuid");
    plant("/System/Library/CoreServices/SystemVersion.plist", "no list");
    EXPECT_EQ(facts.serialNumber(), std::nullopt);
    EXPECT_EQ(facts.platformUuid(), std::nullopt);
    EXPECT_EQ(facts.systemVersion(), SystemHostFacts().systemVersion());
}

TEST_F(RelocatedHostFactsTest, whoOwnsTheConsoleSitsAtTheScreen) {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files to others needs root";
    plant("/dev/console", "");
    plant("/etc/passwd",
          "root:*:0:0::/:/bin/sh\nbroken line\nmagda:*:501:20::/:/bin/zsh\n"
          "loginwindow:*:88:88::/:/bin/false\nother:*:50:1::/:/bin/sh\n");
    const auto ownedBy = [&](uid_t uid) {
        EXPECT_EQ(::chown(folder.path("dev/console").c_str(), uid, 0), 0);
        const auto user = facts.consoleUser();
        return user ? std::optional(user->name) : std::nullopt;
    };
    EXPECT_EQ(ownedBy(501), "magda");
    EXPECT_EQ(facts.consoleUser()->uid, 501U);
    EXPECT_EQ(ownedBy(50), "other");
    EXPECT_EQ(ownedBy(0), std::nullopt);
    EXPECT_EQ(ownedBy(88), std::nullopt);
    EXPECT_EQ(ownedBy(4711), std::nullopt);
}

}  // namespace
}  // namespace orv
