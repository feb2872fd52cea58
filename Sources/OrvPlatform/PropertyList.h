#pragma once

#include <string>
#include <string_view>

#include "OrvPlatform/Json.h"

namespace orv {

/// Reads a property list in its XML or binary form (told apart by its first bytes).
///
/// Dictionaries become objects, texts texts, signed 64-bit integers and reals numbers, Booleans
/// Booleans, dates ISO 8601 texts (UTC, whole seconds), data Base64 texts without line breaks, and
/// the identifiers of keyed archives null. Throws DecodingError for everything else, for nesting
/// deeper than 512 levels, and for a list that is, or whose shared objects would unfold to, more
/// than 64 MiB. Texts that are not valid Unicode are repaired. A date beyond the years 1933 to 2068
/// may be moved to an edge of what the platform's library or WallTime can hold.
Json parsePropertyList(std::string_view bytes);

/// The value as an XML property list: keys sorted, tabs, a line feed at the end, for files that
/// launchd reads. Throws std::invalid_argument for what has no such form: null, and texts with
/// control characters that XML forbids or that are not valid UTF-8, and infinite numbers.
std::string xmlPropertyList(const Json& value);

}  // namespace orv
