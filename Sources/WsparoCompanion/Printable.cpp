#include "WsparoCompanion/Printable.h"

#include <cstddef>

#include "OrvPlatform/Text.h"

namespace orv::companion {

namespace {

constexpr std::string_view replacement = "\uFFFD";

/// How many bytes of UTF-8 at this place a terminal must not see; 0 when they are harmless.
std::size_t harmfulLength(std::string_view rest) {
    const auto first = static_cast<unsigned char>(rest[0]);
    if (first < 0x20 || first == 0x7F) return 1;
    if (first == 0xC2 && static_cast<unsigned char>(rest[1]) < 0xA0) return 2;  // C1 controls
    for (const std::string_view mark : {"\u202A", "\u202B", "\u202C", "\u202D", "\u202E", "\u2066",
                                        "\u2067", "\u2068", "\u2069", "\u2028", "\u2029"}) {
        if (rest.starts_with(mark)) return mark.size();
    }
    return 0;
}

}  // namespace

std::string printableLine(std::string_view text) {
    std::string line = printableBlock(text, "");
    for (char& c : line) {
        if (c == '\n' || c == '\t') c = ' ';
    }
    return line;
}

std::string printableBlock(std::string_view text, std::string_view indentation) {
    const std::string valid = replacingInvalidUtf8(text);
    std::string_view rest = valid;
    std::string block;
    while (!rest.empty()) {
        std::size_t length = 1;
        if (rest.starts_with("\r\n")) {
            rest.remove_prefix(1);
        }
        if (rest[0] == '\n') {
            block.append("\n").append(indentation);
        } else if (rest[0] == '\t') {
            block += '\t';
        } else if (const std::size_t harmful = harmfulLength(rest); harmful > 0) {
            block += replacement;
            length = harmful;
        } else {
            block += rest[0];
        }
        rest.remove_prefix(length);
    }
    return block;
}

}  // namespace orv::companion
