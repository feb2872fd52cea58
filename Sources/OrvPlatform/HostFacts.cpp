#include "OrvPlatform/HostFacts.h"

#include <charconv>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <utility>

#include <fmt/format.h>

// What POSIX systems answer alike; the rest is in HostFacts_linux.cpp and HostFacts_macos.cpp.

namespace orv {

namespace {

std::optional<std::string> numericAddress(const ifaddrs& interface) {
    const sockaddr* address = interface.ifa_addr;
    if (address == nullptr) return std::nullopt;
    socklen_t size = 0;
    if (address->sa_family == AF_INET) size = sizeof(sockaddr_in);
    if (address->sa_family == AF_INET6) size = sizeof(sockaddr_in6);
    char text[NI_MAXHOST];
    if (size == 0 ||
        ::getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) {
        return std::nullopt;
    }
    const std::string_view withScope(text);
    return std::string(withScope.substr(0, withScope.find('%')));
}

}  // namespace

SystemHostFacts::SystemHostFacts(SystemRoot root) : root(std::move(root)) {
}

std::vector<std::string> SystemHostFacts::ipAddresses() const {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    std::vector<std::string> addresses;
    for (const ifaddrs* interface = first; interface != nullptr; interface = interface->ifa_next) {
        std::optional<std::string> address = numericAddress(*interface);
        if (address && !address->starts_with("127.")) addresses.push_back(std::move(*address));
    }
    return addresses;
}

std::optional<double> SystemHostFacts::oneMinuteLoad() const {
    double load = 0;
    if (::getloadavg(&load, 1) != 1) return std::nullopt;
    return load;
}

std::string threePartVersion(std::string_view text) {
    unsigned parts[3] = {0, 0, 0};
    for (unsigned& part : parts) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), part);
        if (error != std::errc{}) {
            part = 0;
            break;
        }
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (!text.starts_with('.')) break;
        text.remove_prefix(1);
    }
    return fmt::format("{}.{}.{}", parts[0], parts[1], parts[2]);
}

}  // namespace orv
