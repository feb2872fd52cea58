#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orv {

/// All texts are UTF-8. Bytes that are not valid UTF-8 are treated as opaque characters of one
/// byte each, unless a function says otherwise; nothing here throws.

/// Without white space and new lines (Unicode's separators, tab, line feed to carriage return and
/// next line) at both ends.
std::string trimmed(std::string_view text);

/// Unicode's simple lower case, letter by letter.
std::string lowercased(std::string_view text);

bool equalsIgnoringCase(std::string_view a, std::string_view b);

/// Without every "/" at the end; a lone "/" gives the empty text.
std::string trimmedTrailingSlash(std::string_view text);

constexpr bool isAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// Whatever the locale.
constexpr bool isAsciiDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// Whatever the locale.
constexpr bool isAsciiLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool isValidUtf8(std::string_view text);

/// The text with every invalid byte replaced by U+FFFD.
std::string replacingInvalidUtf8(std::string_view text);

/// How many user-perceived characters (extended grapheme clusters) the valid UTF-8 text has: an
/// emoji with modifiers, a flag, a letter with combining marks and CR LF each count as one.
std::size_t characterCount(std::string_view text);

/// The order in which people expect names: letters with marks beside their base letter
/// (a, ą, b; l, ł, m), case ignored; ties are broken by the bytes, so that the order is total.
/// Negative, zero or positive.
int compareLocalized(std::string_view a, std::string_view b);

/// The lines without their ends (LF or CR LF). A line feed at the very end begins no further line;
/// empty lines in between are kept. The views point into the text.
std::vector<std::string_view> linesOf(std::string_view text);

}  // namespace orv
