#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OrvPlatform/Task.h"

namespace orv {

struct HttpHeader {
    std::string name;
    std::string value;

    bool operator==(const HttpHeader&) const = default;
};

struct HttpRequest {
    std::string method = "GET";
    std::string url = {};
    std::vector<HttpHeader> headers = {};
    // Shared, so that repeating a request copies nothing.
    std::shared_ptr<const std::string> body = {};
};

struct HttpResponse {
    int status = 0;
    std::vector<HttpHeader> headers;  // of the last answer, in its order
    std::string body;
};

/// One exchange with an HTTP server. An answer of any status is a response; throws UrlError when
/// there is none, and the cancellation error when the task is cancelled.
class HttpClient {
public:
    virtual ~HttpClient() = default;
    virtual Task<HttpResponse> send(HttpRequest request) = 0;
};

}  // namespace orv
