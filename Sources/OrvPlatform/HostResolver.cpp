#include "OrvPlatform/HostResolver.h"

#include <memory>
#include <mutex>
#include <netdb.h>
#include <system_error>
#include <thread>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>

#include "OrvPlatform/AsyncEvent.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

using Endpoints = std::vector<asio::ip::tcp::endpoint>;

/// What the waiting coroutine and the thread in the system's resolver share. The resolver cannot
/// be interrupted and may take half a minute, so whoever no longer wants the answer walks away.
struct LookUp {
    explicit LookUp(const asio::any_io_executor& executor) : answered(executor) {}

    std::mutex lock;
    bool isWanted = true;  // under the lock: while it is true, the executor lives

    // Written by the thread before it posts, read by the coroutine afterwards.
    int error = 0;
    Endpoints endpoints;

    // On the core thread only.
    bool isAnswered = false;
    AsyncEvent answered;
};

class Interest {
public:
    explicit Interest(std::shared_ptr<LookUp> wanted) : lookUp(std::move(wanted)) {}
    ~Interest() {
        const std::lock_guard<std::mutex> guard(lookUp->lock);
        lookUp->isWanted = false;
    }
    Interest(const Interest&) = delete;
    Interest& operator=(const Interest&) = delete;

private:
    std::shared_ptr<LookUp> lookUp;
};

Endpoints endpointsOf(const addrinfo* answers, std::uint16_t port) {
    Endpoints endpoints;
    for (const addrinfo* answer = answers; answer != nullptr; answer = answer->ai_next) {
        if (answer->ai_family != AF_INET && answer->ai_family != AF_INET6) continue;
        asio::ip::tcp::endpoint endpoint;
        endpoint.resize(answer->ai_addrlen);
        std::copy_n(reinterpret_cast<const char*>(answer->ai_addr), answer->ai_addrlen,
                    reinterpret_cast<char*>(endpoint.data()));
        endpoint.port(port);
        endpoints.push_back(endpoint);
    }
    return endpoints;
}

void lookUpOnThisThread(const std::shared_ptr<LookUp>& lookUp, const std::string& host,
                        std::uint16_t port, const asio::any_io_executor& executor) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* answers = nullptr;
    lookUp->error = ::getaddrinfo(host.c_str(), nullptr, &hints, &answers);
    if (lookUp->error == 0) {
        lookUp->endpoints = endpointsOf(answers, port);
        ::freeaddrinfo(answers);
    }
    const std::lock_guard<std::mutex> guard(lookUp->lock);
    if (!lookUp->isWanted) return;
    asio::post(executor, [lookUp] {
        lookUp->isAnswered = true;
        lookUp->answered.notify();
    });
}

UrlError lookUpError(int error, const std::string& host) {
    const bool nameServiceFailed =
        error == EAI_AGAIN || error == EAI_FAIL || error == EAI_SYSTEM || error == EAI_MEMORY;
    const char* reason = error == 0 ? "It has no address" : ::gai_strerror(error);
    return UrlError(
        nameServiceFailed ? UrlErrorCode::dnsLookupFailed : UrlErrorCode::cannotFindHost,
        "Could not resolve host " + host + ": " + reason);
}

}  // namespace

Task<Endpoints> resolveHost(std::string host, std::uint16_t port) {
    boost::system::error_code notAnAddress;
    const auto address = asio::ip::make_address(host, notAnAddress);
    if (!notAnAddress) co_return Endpoints{asio::ip::tcp::endpoint(address, port)};

    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const auto lookUp = std::make_shared<LookUp>(executor);
    const Interest interest(lookUp);
    try {
        std::thread(lookUpOnThisThread, lookUp, host, port, executor).detach();
    } catch (const std::system_error& error) {
        throw UrlError(UrlErrorCode::resourceUnavailable, error.what());
    }
    while (!lookUp->isAnswered)
        co_await lookUp->answered.wait();
    if (lookUp->endpoints.empty()) throw lookUpError(lookUp->error, host);
    co_return lookUp->endpoints;
}

}  // namespace orv
