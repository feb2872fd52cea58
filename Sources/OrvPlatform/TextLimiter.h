#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "OrvPlatform/Utf8Validator.h"

namespace orv {

/// Keeps the beginning of a text that comes in pieces of bytes, however long it gets: its first
/// characters up to a limit. Characters are what people perceive as one (extended grapheme
/// clusters). One byte anywhere in the stream that is not UTF-8, or an incomplete character at
/// its end, makes the whole text empty.
///
/// A character can be of any length, so that a limit in characters alone bounds nothing: at most
/// 16 bytes for each character of the limit, and never less than 2 MiB, are kept. Text that has
/// more is cut there as if it had reached the limit. No written language comes near it.
class TextLimiter {
public:
    explicit TextLimiter(std::size_t limitCharacters);

    void feed(std::string_view bytes);

    /// The text; when it was cut, with the marker behind it. Nothing is to be fed afterwards.
    std::string finish(std::string_view markerWhenCut);

private:
    void keep(std::string_view bytes);
    std::size_t keepAscii(std::string_view bytes);
    void append(std::string_view character, std::int32_t codePoint);
    bool startsCharacter(std::int32_t codePoint);

    Utf8Validator validator;
    std::size_t limit;
    std::size_t ceilingBytes;
    std::string kept;
    std::size_t characters = 0;
    bool isCut = false;
    std::string unfinished;          // the first bytes of a code point that a piece ended with
    std::int32_t previous = 0;       // code point; when kept is not empty
    std::int32_t boundaryState = 0;  // the Unicode library's
};

}  // namespace orv
