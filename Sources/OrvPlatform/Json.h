#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orv {

using Json = nlohmann::json;

/// A text that is not JSON, or JSON that is not of the expected shape; what() names the key.
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether more items are wanted of an array that is a value of the outermost object; the last of
/// those that were read so far is new.
using WantsMoreItems = std::function<bool(const std::string& key, const Json& itemsSoFar)>;

/// Reads JSON from outside. Throws DecodingError when it is no JSON, no valid UTF-8, or nested
/// deeper than 512 levels. Items that are not wanted must be as correct as all others, but only
/// take the time to read them.
Json parseJson(std::string_view text, const WantsMoreItems& wantsMore = nullptr);

/// For files: pretty-printed, keys sorted, a line feed at the end.
std::string prettyJson(const Json& value);

/// For the wire: on one line. A text that is not valid UTF-8 has its bad bytes replaced.
std::string compactJson(const Json& value);

/// The value when it is a JSON integer (no fraction, no exponent) that fits a signed 64-bit.
std::optional<std::int64_t> integerValue(const Json& value);

/// Readers of an object's keys. The required ones throw DecodingError when the key is missing or
/// of another type; the optional ones take a missing key or null as absent and throw for another
/// type.
std::string requiredText(const Json& object, const char* key);
std::int64_t requiredInteger(const Json& object, const char* key);
bool requiredBool(const Json& object, const char* key);
std::optional<std::string> optionalText(const Json& object, const char* key);
std::optional<std::int64_t> optionalInteger(const Json& object, const char* key);
std::optional<bool> optionalBool(const Json& object, const char* key);

/// The text under a key, or nothing when there is none or it is of another type.
std::optional<std::string> textIfPresent(const Json& object, const char* key);

}  // namespace orv
