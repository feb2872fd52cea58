#include "OrvPlatform/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utf8proc.h>

namespace orv {

namespace {

char asciiLowercased(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// How many ASCII characters the text begins with; eight at a time, for most texts have no others.
std::size_t asciiPrefix(std::string_view text) {
    std::size_t position = 0;
    for (std::uint64_t word = 0; text.size() - position >= sizeof word; position += sizeof word) {
        std::memcpy(&word, text.data() + position, sizeof word);
        if ((word & 0x8080808080808080U) != 0) break;
    }
    while (position < text.size() && isAscii(text[position]))
        ++position;
    return position;
}

/// One code point, or one byte that belongs to none.
struct Character {
    std::optional<utf8proc_int32_t> codePoint;
    std::size_t size = 1;
};

/// The text must not be empty.
Character firstCharacter(std::string_view text) {
    if (isAscii(text.front())) return {static_cast<utf8proc_int32_t>(text.front()), 1};
    utf8proc_int32_t codePoint = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto available = static_cast<utf8proc_ssize_t>(std::min<std::size_t>(text.size(), 4));
    const utf8proc_ssize_t size = utf8proc_iterate(bytes, available, &codePoint);
    if (size <= 0) return {};
    return {codePoint, static_cast<std::size_t>(size)};
}

/// The text must not be empty.
Character lastCharacter(std::string_view text) {
    for (std::size_t size = 1; size <= std::min<std::size_t>(text.size(), 4); ++size) {
        const Character found = firstCharacter(text.substr(text.size() - size));
        if (found.codePoint && found.size == size) return found;
    }
    return {};
}

bool isWhitespace(const Character& character) {
    if (!character.codePoint) return false;
    const utf8proc_int32_t codePoint = *character.codePoint;
    if (codePoint < 0x80) return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r');
    if (codePoint == 0x85) return true;
    const utf8proc_category_t category = utf8proc_category(codePoint);
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

void append(std::string& text, utf8proc_int32_t codePoint) {
    utf8proc_uint8_t encoded[4];
    const utf8proc_ssize_t size = utf8proc_encode_char(codePoint, encoded);
    text.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(size));
}

/// The length of the valid beginning.
std::size_t validPrefix(std::string_view text) {
    std::size_t position = asciiPrefix(text);
    while (position < text.size()) {
        const Character character = firstCharacter(text.substr(position));
        if (!character.codePoint) break;
        position += character.size;
        position += asciiPrefix(text.substr(position));
    }
    return position;
}

/// How often CR LF occurs.
std::size_t lineEndPairs(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t i = text.find('\r'); i != std::string_view::npos; i = text.find('\r', i + 1)) {
        if (text.substr(i + 1).starts_with('\n')) ++count;
    }
    return count;
}

}  // namespace

std::string trimmed(std::string_view text) {
    while (!text.empty()) {
        const Character first = firstCharacter(text);
        if (!isWhitespace(first)) break;
        text.remove_prefix(first.size);
    }
    while (!text.empty()) {
        const Character last = lastCharacter(text);
        if (!isWhitespace(last)) break;
        text.remove_suffix(last.size);
    }
    return std::string(text);
}

std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (;;) {
        const std::string_view plain = text.substr(0, asciiPrefix(text));
        for (const char c : plain)
            result.push_back(asciiLowercased(c));
        text.remove_prefix(plain.size());
        if (text.empty()) return result;
        const Character character = firstCharacter(text);
        if (character.codePoint) {
            append(result, utf8proc_tolower(*character.codePoint));
        } else {
            result.push_back(text.front());
        }
        text.remove_prefix(character.size);
    }
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty() && isAscii(a.front()) && isAscii(b.front())) {
        if (asciiLowercased(a.front()) != asciiLowercased(b.front())) return false;
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    // Some letters beyond ASCII have a lower case within it (the Kelvin sign, for one).
    return lowercased(a) == lowercased(b);
}

std::string trimmedTrailingSlash(std::string_view text) {
    while (text.ends_with('/'))
        text.remove_suffix(1);
    return std::string(text);
}

bool isValidUtf8(std::string_view text) {
    return validPrefix(text) == text.size();
}

std::string replacingInvalidUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (;;) {
        const std::size_t valid = validPrefix(text);
        result.append(text.substr(0, valid));
        if (valid == text.size()) return result;
        result.append("\xEF\xBF\xBD");
        text.remove_prefix(valid + 1);
    }
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    Character previous;
    utf8proc_int32_t state = 0;
    while (!text.empty()) {
        const std::string_view plain = text.substr(0, asciiPrefix(text));
        const Character next = plain.empty() ? firstCharacter(text) : Character{plain.front(), 1};
        const bool begins =
            !previous.codePoint || !next.codePoint ||
            utf8proc_grapheme_break_stateful(*previous.codePoint, *next.codePoint, &state);
        if (begins) {
            ++count;
            state = 0;
        }
        previous = next;
        text.remove_prefix(next.size);
        if (plain.size() > 1) {
            count += plain.size() - 1 - lineEndPairs(plain);
            state = 0;
            previous = Character{plain.back(), 1};
            text.remove_prefix(plain.size() - 1);
        }
    }
    return count;
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.ends_with('\r') && end != std::string_view::npos) line.remove_suffix(1);
        lines.push_back(line);
    }
    return lines;
}

}  // namespace orv
