#include "OrvPlatform/NetworkInterfaces.h"

#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fmt/format.h>

namespace orv {

namespace {

std::uint32_t numberOf(const sockaddr* address) {
    if (address == nullptr) return 0;
    sockaddr_in internet{};
    std::memcpy(&internet, address, sizeof internet);
    return ntohl(internet.sin_addr.s_addr);
}

}  // namespace

std::vector<Ipv4Interface> ipv4Interfaces() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    std::vector<Ipv4Interface> interfaces;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        interfaces.push_back({entry->ifa_name, numberOf(entry->ifa_addr),
                              numberOf(entry->ifa_netmask), (entry->ifa_flags & IFF_UP) != 0,
                              (entry->ifa_flags & IFF_LOOPBACK) != 0,
                              (entry->ifa_flags & IFF_POINTOPOINT) != 0});
    }
    return interfaces;
}

std::string ipv4String(std::uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 0xff, address >> 8 & 0xff,
                       address & 0xff);
}

}  // namespace orv
