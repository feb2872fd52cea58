#include "OrvPlatform/Json.h"

#include <limits>

#include <fmt/format.h>

#include "OrvPlatform/JsonTreeBuilder.h"

namespace orv {

namespace {

const Json& requiredValue(const Json& object, const char* key) {
    if (!object.is_object()) throw DecodingError("A JSON object was expected.");
    const auto found = object.find(key);
    if (found == object.end()) throw DecodingError(fmt::format("The key \"{}\" is missing.", key));
    return *found;
}

const Json* presentValue(const Json& object, const char* key) {
    if (!object.is_object()) throw DecodingError("A JSON object was expected.");
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

[[noreturn]] void throwWrongType(const char* key, const char* expected) {
    throw DecodingError(fmt::format("The value of \"{}\" is not {}.", key, expected));
}

std::string textOf(const Json& value, const char* key) {
    if (!value.is_string()) throwWrongType(key, "a text");
    return value.get<std::string>();
}

std::int64_t integerOf(const Json& value, const char* key) {
    const std::optional<std::int64_t> integer = integerValue(value);
    if (!integer) throwWrongType(key, "a 64-bit integer");
    return *integer;
}

bool boolOf(const Json& value, const char* key) {
    if (!value.is_boolean()) throwWrongType(key, "a Boolean");
    return value.get<bool>();
}

}  // namespace

Json parseJson(std::string_view text, const WantsMoreItems& wantsMore) {
    // The parser would take a NUL for the end and ignore whatever follows.
    const std::size_t nul = text.find('\0');
    if (nul != std::string_view::npos) {
        throw DecodingError(fmt::format("Not valid JSON at byte {}.", nul + 1));
    }
    JsonTreeBuilder builder(wantsMore);
    Json::sax_parse(text, &builder);
    return builder.takeTree();
}

std::string prettyJson(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string compactJson(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::int64_t> integerValue(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(number);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    return std::nullopt;
}

std::string requiredText(const Json& object, const char* key) {
    return textOf(requiredValue(object, key), key);
}

std::int64_t requiredInteger(const Json& object, const char* key) {
    return integerOf(requiredValue(object, key), key);
}

bool requiredBool(const Json& object, const char* key) {
    return boolOf(requiredValue(object, key), key);
}

std::optional<std::string> optionalText(const Json& object, const char* key) {
    const Json* value = presentValue(object, key);
    if (value == nullptr) return std::nullopt;
    return textOf(*value, key);
}

std::optional<std::int64_t> optionalInteger(const Json& object, const char* key) {
    const Json* value = presentValue(object, key);
    if (value == nullptr) return std::nullopt;
    return integerOf(*value, key);
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    const Json* value = presentValue(object, key);
    if (value == nullptr) return std::nullopt;
    return boolOf(*value, key);
}

std::optional<std::string> textIfPresent(const Json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

}  // namespace orv
