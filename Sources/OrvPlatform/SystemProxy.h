#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace orv {

/// An HTTP proxy, which is asked for a tunnel (CONNECT).
struct ProxyAddress {
    std::string host;  // without the brackets of an IPv6 address
    std::uint16_t port = 0;
    std::string user;  // empty: none is sent
    std::string password;

    bool operator==(const ProxyAddress&) const = default;
};

/// Which proxy leads to an https or wss server; nothing: go there directly. The host is a name or
/// an address without brackets.
using ProxyLookup =
    std::function<std::optional<ProxyAddress>(const std::string& host, std::uint16_t port)>;

/// The system's own answer, looked up afresh each time, so that a change of network counts.
/// macOS: the proxies of the network settings, without their passwords, which the keychain keeps;
/// configuration scripts are not asked. Linux: https_proxy, else all_proxy, except for what
/// no_proxy names; each also in capitals; the lower-cased one wins. Throws UrlError (badUrl,
/// unsupportedUrl) when the proxy is named in a way that cannot be followed, since going round it
/// may not be wanted.
std::optional<ProxyAddress> systemProxyFor(const std::string& host, std::uint16_t port);

}  // namespace orv
