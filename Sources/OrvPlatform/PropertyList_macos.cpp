#include <vector>

#include "OrvPlatform/CoreFoundationSupport_macos.h"
#include "OrvPlatform/PropertyListDecoder.h"

namespace orv {

namespace {

Json valueOf(CFTypeRef value);

Json arrayOf(CFArrayRef array) {
    Json result = Json::array();
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        result.push_back(valueOf(CFArrayGetValueAtIndex(array, i)));
    }
    return result;
}

Json objectOf(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    Json result = Json::object();
    for (std::size_t i = 0; i < count; ++i) {
        if (const auto key = utf8TextIfString(keys[i])) result[*key] = valueOf(values[i]);
    }
    return result;
}

Json numberOf(CFNumberRef number) {
    if (!CFNumberIsFloatType(number)) {
        std::int64_t integer = 0;
        if (CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) return integer;
    }
    double real = 0;
    CFNumberGetValue(number, kCFNumberFloat64Type, &real);
    return real;
}

Json dataOf(CFDataRef data) {
    return propertyListData({reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                             static_cast<std::size_t>(CFDataGetLength(data))});
}

Json valueOf(CFTypeRef value) {
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFDictionaryGetTypeID()) return objectOf(static_cast<CFDictionaryRef>(value));
    if (type == CFArrayGetTypeID()) return arrayOf(static_cast<CFArrayRef>(value));
    if (type == CFStringGetTypeID()) return utf8Text(static_cast<CFStringRef>(value));
    if (type == CFBooleanGetTypeID()) {
        return static_cast<bool>(CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
    }
    if (type == CFNumberGetTypeID()) return numberOf(static_cast<CFNumberRef>(value));
    if (type == CFDataGetTypeID()) return dataOf(static_cast<CFDataRef>(value));
    if (type == CFDateGetTypeID()) {
        return propertyListDate(CFDateGetAbsoluteTime(static_cast<CFDateRef>(value)));
    }
    return nullptr;
}

}  // namespace

Json decodePropertyList(std::string_view bytes, PropertyListForm form) {
    const CfOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                               reinterpret_cast<const UInt8*>(bytes.data()),
                                               static_cast<CFIndex>(bytes.size())));
    if (!data) throw DecodingError("Not a valid property list.");
    CFPropertyListFormat format{};
    const CfOwned<CFPropertyListRef> list(CFPropertyListCreateWithData(
        kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, &format, nullptr));
    const CFPropertyListFormat expected = form == PropertyListForm::binary
                                              ? kCFPropertyListBinaryFormat_v1_0
                                              : kCFPropertyListXMLFormat_v1_0;
    if (!list || format != expected) throw DecodingError("Not a valid property list.");
    return valueOf(list.get());
}

}  // namespace orv
