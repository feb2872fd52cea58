#include "OrvPlatform/TextLimiter.h"

#include <algorithm>
#include <utf8proc.h>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

constexpr std::size_t ceilingPerCharacter = 16;
constexpr std::size_t lowestCeiling = std::size_t{2} << 20;

}  // namespace

TextLimiter::TextLimiter(std::size_t limitCharacters)
    : limit(limitCharacters),
      ceilingBytes(std::max(lowestCeiling, limitCharacters * ceilingPerCharacter)) {
}

void TextLimiter::feed(std::string_view bytes) {
    if (!validator.isValid()) return;
    if (!validator.feed(bytes)) {
        kept = std::string();
        return;
    }
    if (isCut) return;
    const std::size_t incomplete = validator.incompleteBytes();
    if (unfinished.size() + bytes.size() <= incomplete) {
        unfinished += bytes;
        return;
    }
    if (!unfinished.empty()) {
        // Its missing bytes, and no more, so that what follows is not copied.
        while (!bytes.empty() && (bytes.front() & 0xC0) == 0x80) {
            unfinished += bytes.front();
            bytes.remove_prefix(1);
        }
        keep(unfinished);
        unfinished.clear();
    }
    keep(bytes.substr(0, bytes.size() - incomplete));
    unfinished = bytes.substr(bytes.size() - incomplete);
}

std::string TextLimiter::finish(std::string_view markerWhenCut) {
    if (!validator.isValid() || validator.incompleteBytes() != 0) return {};
    if (isCut) kept += markerWhenCut;
    return std::move(kept);
}

/// Whole code points, known to be valid.
void TextLimiter::keep(std::string_view bytes) {
    while (!bytes.empty() && !isCut) {
        if (const std::size_t taken = keepAscii(bytes); taken > 0) {
            bytes.remove_prefix(taken);
            continue;
        }
        std::int32_t codePoint = 0;
        const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                                           static_cast<utf8proc_ssize_t>(bytes.size()), &codePoint);
        append(bytes.substr(0, static_cast<std::size_t>(size)), codePoint);
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
}

/// The run of ASCII after ASCII at the front, as far as the limits allow, in one go: every such
/// byte is a character of its own but the line feed after a carriage return. Returns its length.
std::size_t TextLimiter::keepAscii(std::string_view bytes) {
    if (kept.empty() || !isAscii(kept.back())) return 0;
    const std::size_t room = ceilingBytes - std::min(ceilingBytes, kept.size());
    const std::size_t most = std::min({bytes.size(), limit - characters, room});
    std::size_t size = 0;
    std::size_t pairs = 0;
    for (char before = kept.back(); size < most && isAscii(bytes[size]); before = bytes[size++]) {
        if (before == '\r' && bytes[size] == '\n') ++pairs;
    }
    if (size == 0) return 0;
    kept.append(bytes.substr(0, size));
    characters += size - pairs;
    previous = static_cast<unsigned char>(kept.back());
    boundaryState = 0;
    return size;
}

void TextLimiter::append(std::string_view character, std::int32_t codePoint) {
    const bool isNew = startsCharacter(codePoint);
    if ((isNew && characters == limit) || kept.size() + character.size() > ceilingBytes) {
        isCut = true;
        return;
    }
    kept += character;
    previous = codePoint;
    if (isNew) ++characters;
}

bool TextLimiter::startsCharacter(std::int32_t codePoint) {
    return kept.empty() || utf8proc_grapheme_break_stateful(previous, codePoint, &boundaryState);
}

}  // namespace orv
