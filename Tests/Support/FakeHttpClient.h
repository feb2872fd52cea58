#pragma once

#include <deque>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

/// A server of a few lines: answers in the order in which they were prepared, then by the
/// fallback; remembers every request.
class FakeHttpClient final : public HttpClient {
public:
    using Answer = std::variant<HttpResponse, UrlError>;
    using Fallback = std::function<Answer(const HttpRequest&)>;

    /// Without prepared answers every request gets 200 and an empty object.
    FakeHttpClient();

    FakeHttpClient& thenAnswer(int status, std::string body = "{}");
    FakeHttpClient& thenFail(UrlErrorCode code);

    Fallback fallback;

    /// When set, each exchange takes this long on that clock.
    void takeTime(Clock& clock, std::chrono::nanoseconds duration);

    std::vector<HttpRequest> requests;

    /// "POST https://host/path Device abc" for each request: method, URL, and the Authorization
    /// header if there was one.
    std::vector<std::string> lines() const;

    /// The body of a request, counted from 0; empty when it had none.
    std::string body(std::size_t index) const;

    Task<HttpResponse> send(HttpRequest request) override;

private:
    std::deque<Answer> prepared;
    Clock* clock = nullptr;
    std::chrono::nanoseconds exchangeTime{};
};

/// The value of a header; empty when there is none.
std::string headerOf(const HttpRequest& request, const std::string& name);

}  // namespace orv
