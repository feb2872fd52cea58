#include "Support/FakeHttpClient.h"

#include <utility>

namespace orv {

FakeHttpClient::FakeHttpClient() {
    fallback = [](const HttpRequest&) -> Answer { return HttpResponse{200, {}, "{}"}; };
}

FakeHttpClient& FakeHttpClient::thenAnswer(int status, std::string body) {
    prepared.push_back(HttpResponse{status, {}, std::move(body)});
    return *this;
}

FakeHttpClient& FakeHttpClient::thenFail(UrlErrorCode code) {
    prepared.push_back(UrlError(code, "The test's network failed"));
    return *this;
}

void FakeHttpClient::takeTime(Clock& usedClock, std::chrono::nanoseconds duration) {
    clock = &usedClock;
    exchangeTime = duration;
}

std::vector<std::string> FakeHttpClient::lines() const {
    std::vector<std::string> result;
    for (const HttpRequest& request : requests) {
        const std::string authorization = headerOf(request, "Authorization");
        result.push_back(request.method + " " + request.url +
                         (authorization.empty() ? "" : " " + authorization));
    }
    return result;
}

std::string FakeHttpClient::body(std::size_t index) const {
    const auto& body = requests.at(index).body;
    return body ? *body : std::string();
}

Task<HttpResponse> FakeHttpClient::send(HttpRequest request) {
    requests.push_back(request);
    Answer answer = HttpResponse{};
    if (prepared.empty()) {
        answer = fallback(request);
    } else {
        answer = std::move(prepared.front());
        prepared.pop_front();
    }
    if (clock != nullptr) co_await clock->sleepFor(exchangeTime);
    if (const auto* error = std::get_if<UrlError>(&answer)) throw *error;
    co_return std::get<HttpResponse>(std::move(answer));
}

std::string headerOf(const HttpRequest& request, const std::string& name) {
    for (const HttpHeader& header : request.headers) {
        if (header.name == name) return header.value;
    }
    return {};
}

}  // namespace orv
