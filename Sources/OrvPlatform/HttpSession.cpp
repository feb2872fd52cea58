#include "OrvPlatform/HttpSession.h"

#include <algorithm>
#include <list>
#include <optional>
#include <utility>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <curl/curl.h>
#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/CurlMulti.h"
#include "OrvPlatform/HttpRedirect.h"
#include "OrvPlatform/HttpTransfer.h"
#include "OrvPlatform/SecureUrl.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

/// A transfer on its way. Shared with the outcome that is still to come.
struct Exchange {
    Exchange(const asio::any_io_executor& executor, std::shared_ptr<const HttpRequest> request,
             const SecureUrl& url, const std::optional<ProxyAddress>& proxy,
             const HttpTransferSettings& settings)
        : transfer(std::move(request), url, proxy, settings), wakeUp(executor) {}

    HttpTransfer transfer;
    asio::steady_timer wakeUp;
    std::optional<CURLcode> result;
};

std::shared_ptr<CURLSH> sharedTlsSessions() {
    std::shared_ptr<CURLSH> share(curl_share_init(), &curl_share_cleanup);
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    return share;
}

}  // namespace

struct HttpSession::State {
    State(asio::any_io_executor runsOn, const TlsTrust& trust, ProxyLookup lookup,
          HttpSessionOptions settings)
        : executor(std::move(runsOn)),
          proxies(std::move(lookup)),
          options(std::move(settings)),
          curl(CurlMulti::create(executor)),
          common{&trust, sharedTlsSessions(), options.maximumBodyBytes, options.userAgent} {}

    struct Running;

    static Task<HttpResponse> perform(std::shared_ptr<State> session, HttpRequest request);
    static Task<HttpResponse> exchange(std::shared_ptr<State> session,
                                       std::shared_ptr<const HttpRequest> request, SecureUrl url,
                                       SteadyTime deadline);
    SteadyTime giveUpAt(const Exchange& exchange, SteadyTime deadline) const;
    void close();

    asio::any_io_executor executor;
    ProxyLookup proxies;
    HttpSessionOptions options;
    std::shared_ptr<CurlMulti> curl;
    HttpTransferSettings common;
    std::list<Exchange*> exchanges;
    bool isClosed = false;
};

/// Carries an exchange for as long as this object lives.
struct HttpSession::State::Running {
    Running(State& carrier, const std::shared_ptr<Exchange>& carried)
        : session(carrier), exchange(*carried) {
        CurlMulti::Listener listener;
        listener.heard = [carried] { carried->transfer.noteProgress(); };
        listener.ended = [carried](CURLcode result) {
            carried->result = result;
            carried->wakeUp.cancel();
        };
        session.curl->add(exchange.transfer.handle(), std::move(listener));
        place = session.exchanges.insert(session.exchanges.end(), &exchange);
    }
    ~Running() {
        session.curl->remove(exchange.transfer.handle());
        session.exchanges.erase(place);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    State& session;
    Exchange& exchange;
    std::list<Exchange*>::iterator place;
};

SteadyTime HttpSession::State::giveUpAt(const Exchange& exchange, SteadyTime deadline) const {
    return std::min(deadline, exchange.transfer.lastProgress() + options.idleTimeout);
}

Task<HttpResponse> HttpSession::State::exchange(std::shared_ptr<State> session,
                                                std::shared_ptr<const HttpRequest> request,
                                                SecureUrl url, SteadyTime deadline) {
    const std::optional<ProxyAddress> proxy = session->proxies(url.host(), url.port());
    const auto exchange = std::make_shared<Exchange>(session->executor, std::move(request), url,
                                                     proxy, session->common);
    const Running running(*session, exchange);
    while (!exchange->result) {
        const SteadyTime limit = session->giveUpAt(*exchange, deadline);
        if (std::chrono::steady_clock::now() >= limit) {
            throw UrlError(UrlErrorCode::timedOut, limit == deadline
                                                       ? "The exchange took longer than allowed"
                                                       : "The server did not answer in time");
        }
        exchange->wakeUp.expires_at(limit);
        boost::system::error_code ignored;
        co_await exchange->wakeUp.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        const auto cancellation = co_await asio::this_coro::cancellation_state;
        if (cancellation.cancelled() != asio::cancellation_type::none) throwCancellation();
        if (session->isClosed) throw UrlError(UrlErrorCode::cancelled, "The session was closed");
    }
    co_return exchange->transfer.takeResponse(*exchange->result);
}

Task<HttpResponse> HttpSession::State::perform(std::shared_ptr<State> session,
                                               HttpRequest request) {
    const SteadyTime deadline = std::chrono::steady_clock::now() + session->options.totalTimeout;
    SecureUrl url(request.url);
    auto current = std::make_shared<HttpRequest>(std::move(request));
    for (int redirects = 0;; ++redirects) {
        if (session->isClosed) throw UrlError(UrlErrorCode::cancelled, "The session was closed");
        Task<HttpResponse> hop = exchange(session, current, url, deadline);
        HttpResponse response = co_await std::move(hop);
        const std::optional<std::string> location = redirectLocation(response);
        if (!location) co_return response;
        if (redirects == session->options.maximumRedirects) {
            throw UrlError(UrlErrorCode::httpTooManyRedirects,
                           fmt::format("More than {} redirects", redirects));
        }
        SecureUrl target = url.redirectedTo(*location);
        current = std::make_shared<HttpRequest>(
            redirectedRequest(std::move(*current), response.status, target.hasSameOrigin(url)));
        url = std::move(target);
    }
}

void HttpSession::State::close() {
    isClosed = true;
    for (Exchange* exchange : exchanges) {
        curl->remove(exchange->transfer.handle());
        exchange->wakeUp.cancel();
    }
}

HttpSession::HttpSession(asio::any_io_executor executor, const TlsTrust& trust, ProxyLookup proxies,
                         HttpSessionOptions options)
    : state(std::make_shared<State>(std::move(executor), trust, std::move(proxies),
                                    std::move(options))) {
}

HttpSession::~HttpSession() {
    state->close();
}

Task<HttpResponse> HttpSession::send(HttpRequest request) {
    // Not a coroutine of this object's, which may go while one runs.
    return State::perform(state, std::move(request));
}

}  // namespace orv
