#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/DeviceUid.h"

namespace orv {
namespace {

TEST(DeviceUidTest, isMadeFromPlatformUuidAndSerialNumber) {
    // printf 'abcd-ef\nC02X' | shasum -a 256
    EXPECT_EQ(buildDeviceUid("host", "C02X", "ABCD-EF"), "mac-6c2c56df8a775551bc27b7c10e2acd67");
}

TEST(DeviceUidTest, doesNotChangeWithTheHostName) {
    EXPECT_EQ(buildDeviceUid("a", "C02X", "ABCD"), buildDeviceUid("b", "C02X", "abcd"));
    EXPECT_EQ(buildDeviceUid("a", "C02X", std::nullopt), buildDeviceUid("b", "C02X", std::nullopt));
    EXPECT_EQ(buildDeviceUid("a", std::nullopt, "u"), buildDeviceUid("b", std::nullopt, "u"));
    EXPECT_NE(buildDeviceUid("a", "C02X", "u"), buildDeviceUid("a", "C02Y", "u"));
}

TEST(DeviceUidTest, fallsBackToTheHostName) {
    // printf 'biuro' | shasum -a 256
    EXPECT_EQ(buildDeviceUid("biuro", std::nullopt, std::nullopt),
              "mac-897efc29391ae67e2fed39a5bc3eded0");
    EXPECT_EQ(buildDeviceUid("biuro", "", ""), "mac-897efc29391ae67e2fed39a5bc3eded0");
}

}  // namespace
}  // namespace orv
