#pragma once

#include <exception>
#include <string>

#include "OrvPlatform/Json.h"

namespace orv {

/// What the Error says that the call throws; "no error" when it throws none. Other exceptions go
/// on.
template <typename Error = std::exception, typename Call>
std::string errorOf(Call call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "no error";
}

/// Why the JSON is no Record; "no error" when it is one.
template <typename Record>
std::string decodingErrorOf(const Json& json) {
    return errorOf<DecodingError>([&] { (void)json.get<Record>(); });
}

}  // namespace orv
