#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orv {

/// One IPv4 address of a network interface. Addresses are numbers in the machine's byte order:
/// 192.0.2.1 is 0xC0000201.
struct Ipv4Interface {
    std::string name;
    std::uint32_t address = 0;
    std::uint32_t netmask = 0;
    bool isUp = false;
    bool isLoopback = false;
    bool isPointToPoint = false;
};

/// In the system's order; an interface with several addresses appears once for each.
std::vector<Ipv4Interface> ipv4Interfaces();

/// "192.0.2.1" of 0xC0000201.
std::string ipv4String(std::uint32_t address);

}  // namespace orv
