#include "OrvViewerShared/LocalNetworks.h"

#include <algorithm>
#include <bit>

namespace orv {

namespace {

std::uint32_t maskOf(int prefixLength) {
    return prefixLength == 0 ? 0 : ~std::uint32_t{0} << (32 - prefixLength);
}

bool isScanned(const Ipv4Interface& interface) {
    return interface.name != "lo0" && !interface.isLoopback && interface.isUp &&
           !interface.isPointToPoint && interface.netmask != 0;
}

LocalNetwork networkAround(const Ipv4Interface& interface, int prefixLength) {
    const std::uint32_t mask = maskOf(prefixLength);
    LocalNetwork network{
        interface.name, interface.address, interface.address & mask, prefixLength, {}};
    const std::uint32_t broadcast = network.networkAddress | ~mask;
    for (std::uint64_t host = std::uint64_t{network.networkAddress} + 1; host < broadcast; ++host) {
        network.hosts.push_back(static_cast<std::uint32_t>(host));
    }
    return network;
}

}  // namespace

std::vector<LocalNetwork> enumerateNetworks(const std::vector<Ipv4Interface>& interfaces,
                                            int maxPrefixLength) {
    std::vector<LocalNetwork> networks;
    for (const Ipv4Interface& interface : interfaces) {
        if (!isScanned(interface)) continue;
        const int prefixLength = std::max(std::popcount(interface.netmask), maxPrefixLength);
        LocalNetwork network = networkAround(interface, prefixLength);
        const bool isKnown =
            std::any_of(networks.begin(), networks.end(), [&](const LocalNetwork& other) {
                return other.interfaceName == network.interfaceName &&
                       other.networkAddress == network.networkAddress &&
                       other.prefixLength == network.prefixLength;
            });
        if (!isKnown) networks.push_back(std::move(network));
    }
    return networks;
}

}  // namespace orv
