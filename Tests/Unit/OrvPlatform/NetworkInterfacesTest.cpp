#include <algorithm>

#include <gtest/gtest.h>

#include "OrvPlatform/NetworkInterfaces.h"

namespace orv {
namespace {

TEST(NetworkInterfacesTest, includeTheLoopback) {
    const std::vector<Ipv4Interface> interfaces = ipv4Interfaces();
    const auto loopback =
        std::find_if(interfaces.begin(), interfaces.end(),
                     [](const Ipv4Interface& found) { return found.address == 0x7f000001; });
    ASSERT_NE(loopback, interfaces.end());
    EXPECT_TRUE(loopback->isLoopback);
    EXPECT_TRUE(loopback->isUp);
    EXPECT_FALSE(loopback->isPointToPoint);
    EXPECT_EQ(loopback->netmask, 0xff000000);
    EXPECT_FALSE(loopback->name.empty());
}

TEST(NetworkInterfacesTest, writeAddressesAsText) {
    EXPECT_EQ(ipv4String(0xC0000201), "192.0.2.1");
    EXPECT_EQ(ipv4String(0xFFFFFFFF), "255.255.255.255");
    EXPECT_EQ(ipv4String(0), "0.0.0.0");
}

}  // namespace
}  // namespace orv
