#include <algorithm>
#include <initializer_list>
#include <stdlib.h>
#include <string_view>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/network_v4.hpp>
#include <boost/asio/ip/network_v6.hpp>
#include <fmt/format.h>

#include "OrvPlatform/CurlUrl.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

namespace ip = boost::asio::ip;

/// The first of the variables that says something; an empty one says nothing.
std::string firstSet(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* value = ::getenv(name);
        if (value != nullptr && *value != '\0') return value;
    }
    return {};
}

char lowerCased(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Lower-cased, without the dot that ends a fully qualified name.
std::string normalized(std::string_view host) {
    if (host.ends_with('.')) host.remove_suffix(1);
    std::string text;
    for (const char c : host)
        text += lowerCased(c);
    return text;
}

bool contains(const std::string& network, const ip::address& address) {
    boost::system::error_code notV4;
    boost::system::error_code notV6;
    const auto v4 = ip::make_network_v4(network, notV4);
    const auto v6 = ip::make_network_v6(network, notV6);
    if (!notV4 && address.is_v4()) {
        const ip::network_v4 same(address.to_v4(), v4.prefix_length());
        return same.canonical() == v4.canonical();
    }
    if (!notV6 && address.is_v6()) {
        const ip::network_v6 same(address.to_v6(), v6.prefix_length());
        return same.canonical() == v6.canonical();
    }
    return false;
}

/// "desk.example:8443", "[::1]:8443" or "::1" in two; no port means every port.
struct Exception {
    std::string host;
    std::string port;
};

Exception split(std::string_view entry) {
    if (entry.starts_with('[')) {
        const auto end = entry.find(']');
        if (end == std::string_view::npos) return {std::string(entry), ""};
        const std::string_view rest = entry.substr(end + 1);
        return {std::string(entry.substr(1, end - 1)),
                std::string(rest.starts_with(':') ? rest.substr(1) : "")};
    }
    const auto colon = entry.find(':');
    if (colon == std::string_view::npos || entry.rfind(':') != colon) {
        return {std::string(entry), ""};
    }
    return {std::string(entry.substr(0, colon)), std::string(entry.substr(colon + 1))};
}

/// | entry           | covers                                     |
/// |-----------------|--------------------------------------------|
/// | *               | every host                                 |
/// | example.com     | itself and every name below it             |
/// | .example.com    | the same; so does *.example.com            |
/// | 10.0.0.1, ::1   | that address                               |
/// | 10.0.0.0/8      | the addresses of that network              |
/// | any of them:443 | the same, on that port only                |
bool covers(std::string_view entry, const std::string& host, std::uint16_t port) {
    if (entry == "*") return true;
    auto [excepted, exceptedPort] = split(entry);
    if (!exceptedPort.empty() && exceptedPort != std::to_string(port)) return false;

    boost::system::error_code isName;
    const ip::address address = ip::make_address(host, isName);
    if (!isName) {
        boost::system::error_code noAddress;
        const ip::address exceptedAddress = ip::make_address(excepted, noAddress);
        return noAddress ? contains(excepted, address) : exceptedAddress == address;
    }
    excepted = normalized(excepted);
    if (excepted.starts_with("*.")) excepted.erase(0, 1);
    if (excepted.starts_with('.')) excepted.erase(0, 1);
    return !excepted.empty() && (host == excepted || host.ends_with("." + excepted));
}

bool isExcepted(const std::string& host, std::uint16_t port) {
    constexpr std::string_view separators = ", \t";
    const std::string list = firstSet({"no_proxy", "NO_PROXY"});
    std::string_view rest = list;
    while (!rest.empty()) {
        const std::string_view entry = rest.substr(0, rest.find_first_of(separators));
        if (!entry.empty() && covers(entry, normalized(host), port)) return true;
        rest.remove_prefix(std::min(rest.size(), entry.size() + 1));
    }
    return false;
}

/// The address never names the password in an error.
ProxyAddress parsed(const std::string& text) {
    CurlUrl url;
    const bool hasScheme = text.find("://") != std::string::npos;
    if (!url.set(CURLUPART_URL, hasScheme ? text : "http://" + text, CURLU_NON_SUPPORT_SCHEME)) {
        throw UrlError(UrlErrorCode::badUrl, "The proxy's address is not valid");
    }
    const std::string scheme = url.get(CURLUPART_SCHEME).value_or("");
    if (scheme != "http") {
        throw UrlError(UrlErrorCode::unsupportedUrl,
                       fmt::format("Proxies of the kind {} are not supported", scheme));
    }
    std::string host = url.get(CURLUPART_HOST).value_or("");
    if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
    const int port = std::stoi(url.get(CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("80"));
    return {host, static_cast<std::uint16_t>(port),
            url.get(CURLUPART_USER, CURLU_URLDECODE).value_or(""),
            url.get(CURLUPART_PASSWORD, CURLU_URLDECODE).value_or("")};
}

}  // namespace

std::optional<ProxyAddress> systemProxyFor(const std::string& host, std::uint16_t port) {
    const std::string proxy = firstSet({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    if (proxy.empty() || isExcepted(host, port)) return std::nullopt;
    return parsed(proxy);
}

}  // namespace orv
