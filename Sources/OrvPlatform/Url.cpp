#include "OrvPlatform/Url.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <netinet/in.h>

#include <fmt/format.h>

#include "OrvPlatform/Text.h"

// Not libcurl's parser: it decodes, lower-cases and normalises hosts, forgets an empty query and
// refuses URLs without a host, while the agent sends on, compares and shows what was written.

namespace orv {

namespace {

bool isHexDigit(char c) {
    return isAsciiDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isOneOf(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

constexpr std::string_view unreservedMarks = "-._~";
constexpr std::string_view subDelimiters = "!$&'()*+,;=";

/// RFC 3986's unreserved characters, sub-delimiters and %XX, and those beyond ASCII; and more that
/// are named.
bool consistsOf(std::string_view text, std::string_view more) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%') {
            if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
                return false;
            }
            i += 2;
        } else if (!isAsciiLetter(c) && !isAsciiDigit(c) && !isOneOf(c, unreservedMarks) &&
                   !isOneOf(c, subDelimiters) && isAscii(c) && !isOneOf(c, more)) {
            return false;
        }
    }
    return true;
}

bool isScheme(std::string_view text) {
    return !text.empty() && isAsciiLetter(text.front()) &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return isAsciiLetter(c) || isAsciiDigit(c) || isOneOf(c, "+-.");
           });
}

/// With or without a zone ("fe80::1%25en0").
bool isIpv6Address(std::string_view text) {
    const std::size_t zone = text.find("%25");
    const std::string address(text.substr(0, zone));
    in6_addr parsed{};
    if (inet_pton(AF_INET6, address.c_str(), &parsed) != 1) return false;
    return zone == std::string_view::npos ||
           (text.size() > zone + 3 && consistsOf(text.substr(zone + 3), ""));
}

/// Cuts the text at the first of the delimiters and returns what follows it.
std::optional<std::string_view> cutAt(std::string_view& text, char delimiter) {
    const std::size_t position = text.find(delimiter);
    if (position == std::string_view::npos) return std::nullopt;
    const std::string_view rest = text.substr(position + 1);
    text = text.substr(0, position);
    return rest;
}

bool readUserInfo(std::string_view text, Url& url) {
    if (!consistsOf(text, ":")) return false;
    const std::optional<std::string_view> password = cutAt(text, ':');
    url.user = std::string(text);
    if (password) url.password = std::string(*password);
    return true;
}

bool readPort(std::string_view text, Url& url) {
    if (text.empty()) return true;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size()) return false;
    url.port = port;
    return true;
}

bool readHostAndPort(std::string_view text, Url& url) {
    if (text.starts_with('[')) {
        text.remove_prefix(1);
        const std::optional<std::string_view> rest = cutAt(text, ']');
        if (!rest || !isIpv6Address(text)) return false;
        url.host = std::string(text);
        if (rest->empty()) return true;
        return rest->front() == ':' && readPort(rest->substr(1), url);
    }
    const std::optional<std::string_view> port = cutAt(text, ':');
    if (!consistsOf(text, "")) return false;
    url.host = std::string(text);
    return !port || readPort(*port, url);
}

bool readAuthority(std::string_view text, Url& url) {
    const std::optional<std::string_view> host = cutAt(text, '@');
    if (!host) return readHostAndPort(text, url);
    return readUserInfo(text, url) && readHostAndPort(*host, url);
}

std::string percentEncoded(std::string_view text, std::string_view kept) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if (isAsciiLetter(c) || isAsciiDigit(c) || isOneOf(c, kept)) {
            result.push_back(c);
        } else {
            result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return result;
}

}  // namespace

std::string Url::text() const {
    std::string result = scheme + "://";
    if (user) result += *user;
    if (password) result += ":" + *password;
    if (user || password) result += "@";
    result += host.find(':') == std::string::npos ? host : "[" + host + "]";
    if (port) result += fmt::format(":{}", *port);
    result += path;
    if (query) result += "?" + *query;
    if (fragment) result += "#" + *fragment;
    return result;
}

std::optional<Url> parseUrl(std::string_view text) {
    Url url;
    const std::optional<std::string_view> fragment = cutAt(text, '#');
    const std::optional<std::string_view> query = cutAt(text, '?');
    const std::optional<std::string_view> afterScheme = cutAt(text, ':');
    if (!afterScheme || !isScheme(text) || !afterScheme->starts_with("//")) return std::nullopt;
    const std::string_view authorityAndPath = afterScheme->substr(2);
    const std::size_t pathBegin = std::min(authorityAndPath.find('/'), authorityAndPath.size());
    const std::string_view path = authorityAndPath.substr(pathBegin);
    if (!readAuthority(authorityAndPath.substr(0, pathBegin), url) || !consistsOf(path, "/:@") ||
        !consistsOf(query.value_or(""), "/:@?") || !consistsOf(fragment.value_or(""), "/:@?")) {
        return std::nullopt;
    }
    url.scheme = std::string(text);
    url.path = std::string(path);
    if (query) url.query = std::string(*query);
    if (fragment) url.fragment = std::string(*fragment);
    return url;
}

std::string percentEncodedPath(std::string_view text) {
    return percentEncoded(text, "!$&'()*+,-./:=@_~");
}

std::string percentEncodedQuery(std::string_view text) {
    return percentEncoded(text, "!$&'()*+,-./:=@_~;?");
}

}  // namespace orv
