#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orv {

/// How many characters so many bytes become.
std::size_t base64EncodedSize(std::size_t byteCount);

/// Appends standard Base64, padded, without line breaks. Pieces of one text may be appended one
/// after the other as long as all but the last have a length divisible by three.
void appendBase64(std::string& out, std::string_view bytes);

/// Strict: the standard alphabet, whole padding, no unused bits set, and nothing else: no line
/// breaks, no blanks. Nothing for any other text; no bytes for the empty text.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace orv
