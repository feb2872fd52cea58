#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "OrvPlatform/NetworkInterfaces.h"

namespace orv {

/// The block of addresses around one of this machine's own. Addresses are numbers in the machine's
/// byte order.
struct LocalNetwork {
    std::string interfaceName;
    std::uint32_t localAddress = 0;
    std::uint32_t networkAddress = 0;
    int prefixLength = 0;
    std::vector<std::uint32_t> hosts;  // ascending, without the network's and broadcast addresses
};

/// The networks to scan, in the order of the interfaces: of every interface that is up, has a
/// netmask, and is neither loopback nor point-to-point. A wider network is narrowed to the block of
/// maxPrefixLength (0 to 32) that holds the local address; a block that an interface has twice is
/// scanned once.
std::vector<LocalNetwork> enumerateNetworks(const std::vector<Ipv4Interface>& interfaces,
                                            int maxPrefixLength);

}  // namespace orv
