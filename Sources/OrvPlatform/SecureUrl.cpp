#include "OrvPlatform/SecureUrl.h"

#include <strings.h>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

std::string schemeOf(const CurlUrl& url) {
    return url.get(CURLUPART_SCHEME).value_or("");
}

/// The library's reader also lets pass one slash or three before the host.
bool hasTwoSlashes(const std::string& text) {
    const auto colon = text.find(':');
    return text.compare(colon, 3, "://") == 0 && text.compare(colon, 4, ":///") != 0;
}

[[noreturn]] void refuseScheme(const std::string& scheme) {
    throw UrlError(UrlErrorCode::unsupportedUrl,
                   fmt::format("Only https is supported, not {}", scheme));
}

}  // namespace

SecureUrl::SecureUrl(const std::string& text) {
    // To the library a zero byte would be the end.
    const bool isWhole = text.find('\0') == std::string::npos;
    if (!isWhole || !url.set(CURLUPART_URL, text, CURLU_NON_SUPPORT_SCHEME)) {
        throw UrlError(UrlErrorCode::badUrl, "The URL is not valid");
    }
    if (schemeOf(url) != "https") refuseScheme(schemeOf(url));
    if (!hasTwoSlashes(text)) throw UrlError(UrlErrorCode::badUrl, "The URL names no host");
}

SecureUrl SecureUrl::redirectedTo(const std::string& location) const {
    CurlUrl target(url);
    if (!target.set(CURLUPART_URL, location, CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE)) {
        throw UrlError(UrlErrorCode::badUrl, "The redirect leads to no valid URL");
    }
    const std::string scheme = schemeOf(target);
    if (scheme == "http") {
        throw UrlError(UrlErrorCode::redirectToNonSecureUrl,
                       fmt::format("The redirect leads to plain http at {}",
                                   target.get(CURLUPART_HOST).value_or("")));
    }
    if (scheme != "https") refuseScheme(scheme);
    return SecureUrl(std::move(target));
}

std::string SecureUrl::host() const {
    std::string host = url.get(CURLUPART_HOST).value_or("");
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

std::uint16_t SecureUrl::port() const {
    return static_cast<std::uint16_t>(
        std::stoi(url.get(CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("443")));
}

bool SecureUrl::hasSameOrigin(const SecureUrl& other) const {
    return port() == other.port() && ::strcasecmp(host().c_str(), other.host().c_str()) == 0;
}

}  // namespace orv
