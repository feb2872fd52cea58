#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/HttpClient.h"

namespace orv {

/// Where the answer sends the request; nothing when it is final.
std::optional<std::string> redirectLocation(const HttpResponse& response);

/// The request as it goes to the redirect's target. 303 (except after HEAD), and 301 and 302 after
/// POST, make it a GET without a body. To another origin only those headers go along that tell
/// nothing about the sender, so that no credential does, whatever its header is called.
HttpRequest redirectedRequest(HttpRequest request, int status, bool staysWithOrigin);

}  // namespace orv
