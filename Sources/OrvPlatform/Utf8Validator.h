#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orv {

/// Checks a stream of bytes that comes in pieces of any size: well-formed UTF-8 has no overlong
/// forms, no surrogates and nothing above U+10FFFF. ASCII passes at memory speed, everything else
/// at about a byte per nanosecond.
class Utf8Validator {
public:
    /// False from the first bad byte on.
    bool feed(std::string_view bytes);

    bool isValid() const;

    /// How many bytes at the end so far belong to a character that is not complete; 0 to 3.
    std::size_t incompleteBytes() const { return incomplete; }

private:
    std::uint64_t state = 0;  // of the table-driven automaton, in its low six bits
    std::size_t incomplete = 0;
};

}  // namespace orv
