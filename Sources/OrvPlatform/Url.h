#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orv {

/// The pieces of an absolute URL, percent-encoding and letter case left as they stand.
struct Url {
    std::string scheme;                 // as written
    std::string host;                   // as written, without the brackets of an IPv6 address
    std::optional<std::uint16_t> port;  // only when named
    std::string path;                   // empty or beginning with "/"
    std::optional<std::string> query;
    std::optional<std::string> user;
    std::optional<std::string> password;
    std::optional<std::string> fragment;

    /// Put together again; brackets come back around an IPv6 address. An accepted text comes back
    /// byte for byte, but for an empty or zero-padded port.
    std::string text() const;
};

/// Nothing when the text is no absolute URL in RFC 3986's form "scheme://[authority][/path]...":
/// blanks, control characters, other characters that the RFC leaves out and broken percent-encoding
/// make it none, and so does a port that is not a number of 16 bits. Characters beyond ASCII are
/// let through as they are. A URL without a host ("file:///x", "https://") has an empty host.
std::optional<Url> parseUrl(std::string_view text);

/// Every byte outside the set allowed in a URL's path, as %XX with upper-case digits; "/" stays.
std::string percentEncodedPath(std::string_view text);

/// Every byte outside the set allowed in a URL's query; "&", "=", "+" and "?" stay.
std::string percentEncodedQuery(std::string_view text);

}  // namespace orv
