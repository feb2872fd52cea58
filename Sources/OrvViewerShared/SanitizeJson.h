#pragma once

#include <optional>
#include <utility>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/Url.h"

namespace orv {

/// How a value of ours is spelt in every JSON body and socket message: an absent value as null, a
/// date as ISO 8601 text, a URL as its absolute text, everything else as itself.
inline Json sanitizeJson(Json value) {
    return value;
}
inline Json sanitizeJson(WallTime time) {
    return iso8601(time);
}
inline Json sanitizeJson(const Url& url) {
    return url.text();
}
template <typename Value>
Json sanitizeJson(const std::optional<Value>& value) {
    return value ? sanitizeJson(*value) : Json(nullptr);
}

}  // namespace orv
