#include "OrvPlatform/HttpDate.h"

#include <curl/curl.h>

namespace orv {

std::optional<WallTime> parseHttpDate(const std::string& text) {
    const time_t seconds = curl_getdate(text.c_str(), nullptr);
    if (seconds < 0) return std::nullopt;
    return WallTime(std::chrono::seconds(seconds));
}

}  // namespace orv
