#include "OrvViewerShared/Commands/Payload.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

std::optional<std::int64_t> decimalInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::optional<std::int64_t> integerFrom(const Json& value) {
    if (!value.is_string()) return integerValue(value);
    return decimalInteger(value.get_ref<const std::string&>());
}

}  // namespace

const Json& payloadValue(const Json& payload, const char* key) {
    static const Json absent;
    if (!payload.is_object()) return absent;
    const auto found = payload.find(key);
    return found == payload.end() ? absent : *found;
}

std::int64_t payloadInt(const Json& value, std::int64_t defaultValue, std::int64_t min,
                        std::int64_t max) {
    return std::max(std::min(integerFrom(value).value_or(defaultValue), max), min);
}

bool payloadBool(const Json& value, bool defaultValue) {
    if (value.is_boolean()) return value.get<bool>();
    if (!value.is_string()) return defaultValue;
    const std::string word = lowercased(value.get_ref<const std::string&>());
    return word == "1" || word == "true" || word == "yes" || word == "on";
}

}  // namespace orv
