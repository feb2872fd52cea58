#include <array>
#include <cstdint>
#include <cstring>
#include <sys/attr.h>
#include <unistd.h>

#include "OrvPlatform/VolumeFacts.h"

namespace orv {

std::optional<std::string> volumeLocalizedName(const std::string& mountPoint) {
    struct [[gnu::packed, gnu::aligned(4)]] Answer {
        std::uint32_t length;
        attrreference_t name;
        std::array<char, 256> text;
    };
    attrlist wanted{};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.volattr = ATTR_VOL_INFO | ATTR_VOL_NAME;
    Answer answer{};
    if (getattrlist(mountPoint.c_str(), &wanted, &answer, sizeof(answer), 0) != 0) {
        return std::nullopt;
    }
    const char* name = reinterpret_cast<const char*>(&answer.name) + answer.name.attr_dataoffset;
    std::string text(name, strnlen(name, answer.name.attr_length));
    if (text.empty()) return std::nullopt;
    return text;
}

}  // namespace orv
