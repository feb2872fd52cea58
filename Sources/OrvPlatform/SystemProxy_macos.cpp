#include <CFNetwork/CFNetwork.h>
#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>

#include "OrvPlatform/CoreFoundationSupport_macos.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

CfOwned<CFArrayRef> proxiesFor(const std::string& host, std::uint16_t port) {
    const CfOwned<CFDictionaryRef> settings(CFNetworkCopySystemProxySettings());
    const bool isIpv6 = host.find(':') != std::string::npos;
    const CfOwned<CFStringRef> text = cfString(
        fmt::format("https://{}{}{}:{}/", isIpv6 ? "[" : "", host, isIpv6 ? "]" : "", port));
    if (!settings || !text) return {};
    const CfOwned<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, text.get(), nullptr));
    if (!url) return {};
    return CfOwned<CFArrayRef>(CFNetworkCopyProxiesForURL(url.get(), settings.get()));
}

bool isOfType(CFDictionaryRef proxy, CFStringRef type) {
    const void* value = CFDictionaryGetValue(proxy, kCFProxyTypeKey);
    return value != nullptr && CFEqual(value, type);
}

ProxyAddress addressOf(CFDictionaryRef proxy) {
    ProxyAddress address;
    const void* host = CFDictionaryGetValue(proxy, kCFProxyHostNameKey);
    address.host = utf8TextIfString(host).value_or("");
    int port = 0;
    const void* number = CFDictionaryGetValue(proxy, kCFProxyPortNumberKey);
    if (number != nullptr && CFGetTypeID(number) == CFNumberGetTypeID()) {
        CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberIntType, &port);
    }
    address.port = port > 0 && port <= 65535 ? static_cast<std::uint16_t>(port) : 80;
    if (address.host.empty()) {
        throw UrlError(UrlErrorCode::badUrl, "The proxy's address is not valid");
    }
    return address;
}

}  // namespace

std::optional<ProxyAddress> systemProxyFor(const std::string& host, std::uint16_t port) {
    const CfOwned<CFArrayRef> proxies = proxiesFor(host, port);
    const CFIndex count = proxies ? CFArrayGetCount(proxies.get()) : 0;
    bool hasSocks = false;
    for (CFIndex i = 0; i < count; ++i) {
        const auto* proxy = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(proxies.get(), i));
        if (isOfType(proxy, kCFProxyTypeNone)) return std::nullopt;
        if (isOfType(proxy, kCFProxyTypeHTTPS) || isOfType(proxy, kCFProxyTypeHTTP)) {
            return addressOf(proxy);
        }
        hasSocks = hasSocks || isOfType(proxy, kCFProxyTypeSOCKS);
    }
    if (hasSocks) {
        throw UrlError(UrlErrorCode::unsupportedUrl, "Proxies of the kind SOCKS are not supported");
    }
    // What is left is a script for choosing one, which takes an interpreter to ask.
    return std::nullopt;
}

}  // namespace orv
