#include "OrvPlatform/CoreFoundationSupport_macos.h"
#include "OrvPlatform/Text.h"

namespace orv {

int compareLocalized(std::string_view a, std::string_view b) {
    const CfOwned<CFStringRef> stringA = cfString(replacingInvalidUtf8(a));
    const CfOwned<CFStringRef> stringB = cfString(replacingInvalidUtf8(b));
    if (stringA && stringB) {
        const CFComparisonResult result = CFStringCompare(
            stringA.get(), stringB.get(), kCFCompareCaseInsensitive | kCFCompareLocalized);
        if (result != kCFCompareEqualTo) return result == kCFCompareLessThan ? -1 : 1;
    }
    return a.compare(b);
}

}  // namespace orv
