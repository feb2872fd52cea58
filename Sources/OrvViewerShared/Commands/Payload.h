#pragma once

#include <cstdint>

#include <nlohmann/json_fwd.hpp>

namespace orv {

using Json = nlohmann::json;

/// The value under a key; null when it is absent or the payload is no object.
const Json& payloadValue(const Json& payload, const char* key);

/// Consultants' tools send numbers as numbers or as text. Never refused, always within min..max:
///
/// | value                                                              | number       |
/// |--------------------------------------------------------------------|--------------|
/// | a JSON integer (no fraction, no exponent) of signed 64 bits        | that         |
/// | a text that is such an integer alone, with or without "+" or "-"   | that         |
/// | everything else, blanks around and larger numbers included         | defaultValue |
std::int64_t payloadInt(const Json& value, std::int64_t defaultValue, std::int64_t min,
                        std::int64_t max);

/// A Boolean is itself. A text is true when it is "1", "true", "yes" or "on" in any case, and
/// false otherwise, whatever the default. Everything else gives the default.
bool payloadBool(const Json& value, bool defaultValue);

}  // namespace orv
