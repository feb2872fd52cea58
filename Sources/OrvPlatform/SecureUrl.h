#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/CurlUrl.h"

namespace orv {

/// An https URL with a host: the only kind that a request goes to.
class SecureUrl {
public:
    /// Throws UrlError: badUrl for what is no URL, unsupportedUrl for another scheme.
    explicit SecureUrl(const std::string& text);

    /// Where a redirect from here leads. Throws UrlError: badUrl, unsupportedUrl, and
    /// redirectToNonSecureUrl when it leads to plain http.
    SecureUrl redirectedTo(const std::string& location) const;

    /// A name or an address without brackets.
    std::string host() const;
    std::uint16_t port() const;

    /// Whether what is meant for the one may be told to the other.
    bool hasSameOrigin(const SecureUrl& other) const;

    const CurlUrl& parts() const { return url; }

private:
    explicit SecureUrl(CurlUrl checked) : url(std::move(checked)) {}

    CurlUrl url;
};

}  // namespace orv
