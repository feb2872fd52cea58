#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <CoreFoundation/CoreFoundation.h>

namespace orv {

/// Owns one reference to a Core Foundation object (from a function with Create or Copy in its
/// name), or none.
template <typename Reference>
class CfOwned {
public:
    CfOwned() = default;
    explicit CfOwned(Reference object) : object(object) {}
    ~CfOwned() {
        if (object != nullptr) CFRelease(object);
    }

    CfOwned(CfOwned&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    CfOwned& operator=(CfOwned&& other) noexcept {
        std::swap(object, other.object);
        return *this;
    }
    CfOwned(const CfOwned&) = delete;
    CfOwned& operator=(const CfOwned&) = delete;

    Reference get() const { return object; }
    explicit operator bool() const { return object != nullptr; }

private:
    Reference object = nullptr;
};

/// Null when the text is not valid UTF-8.
inline CfOwned<CFStringRef> cfString(std::string_view text) {
    return CfOwned<CFStringRef>(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

/// UTF-8, whatever the string holds, NUL included; a surrogate without its pair becomes "?".
inline std::string utf8Text(CFStringRef string) {
    const CFRange all{0, CFStringGetLength(string)};
    constexpr UInt8 forUnpaired = '?';
    CFIndex size = 0;
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, forUnpaired, false, nullptr, 0, &size);
    std::string text(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, forUnpaired, false,
                     reinterpret_cast<UInt8*>(text.data()), size, &size);
    return text;
}

/// Nothing when the object is null or no string.
inline std::optional<std::string> utf8TextIfString(CFTypeRef object) {
    if (object == nullptr || CFGetTypeID(object) != CFStringGetTypeID()) return std::nullopt;
    return utf8Text(static_cast<CFStringRef>(object));
}

}  // namespace orv
