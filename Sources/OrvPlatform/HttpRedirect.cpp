#include "OrvPlatform/HttpRedirect.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <strings.h>

namespace orv {

namespace {

bool equalNames(std::string_view one, std::string_view other) {
    return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

bool becomesGet(const std::string& method, int status) {
    if (status == 303) return method != "GET" && method != "HEAD";
    return (status == 301 || status == 302) && method == "POST";
}

bool describesBody(const HttpHeader& header) {
    constexpr std::string_view prefix = "content-";
    return equalNames(std::string_view(header.name).substr(0, prefix.size()), prefix) ||
           equalNames(header.name, "transfer-encoding");
}

bool mayLeaveOrigin(const HttpHeader& header) {
    constexpr std::array<std::string_view, 7> harmless = {
        "accept",     "accept-language",  "accept-encoding", "content-type",
        "user-agent", "content-encoding", "range",
    };
    return std::any_of(harmless.begin(), harmless.end(),
                       [&](std::string_view name) { return equalNames(name, header.name); });
}

}  // namespace

std::optional<std::string> redirectLocation(const HttpResponse& response) {
    constexpr std::array redirects = {301, 302, 303, 307, 308};
    if (std::find(redirects.begin(), redirects.end(), response.status) == redirects.end()) {
        return std::nullopt;
    }
    for (const HttpHeader& header : response.headers) {
        if (equalNames(header.name, "location") && !header.value.empty()) return header.value;
    }
    return std::nullopt;
}

HttpRequest redirectedRequest(HttpRequest request, int status, bool staysWithOrigin) {
    if (becomesGet(request.method, status)) {
        request.method = "GET";
        request.body.reset();
        std::erase_if(request.headers, describesBody);
    }
    if (!staysWithOrigin) {
        std::erase_if(request.headers, [](const HttpHeader& h) { return !mayLeaveOrigin(h); });
    }
    return request;
}

}  // namespace orv
