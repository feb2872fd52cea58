#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "OrvPlatform/UrlError.h"

namespace orv {

/// All that is known about a transfer that failed.
struct CurlFailure {
    CURLcode result = CURLE_OK;
    std::string host = {};                      // that the request was for
    std::optional<std::string> proxyHost = {};  // when there was one on the way
    std::string text = {};                      // libcurl's own words; may be empty
    int systemError = 0;                        // errno of the last connection attempt, or 0
    long verifyResult = 0;                      // X509_V_ERR_ of the server's certificate, or 0
    long proxyStatus = 0;                       // the proxy's answer to CONNECT, or 0
    std::chrono::microseconds elapsed{0};
    bool isOffline = false;
};

/// The failure in this project's words.
UrlError urlErrorOf(const CurlFailure& failure);

/// Whether the machine knows no way to any network beyond its own. Sends nothing.
bool isOffline();

}  // namespace orv
