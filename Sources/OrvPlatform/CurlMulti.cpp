#include "OrvPlatform/CurlMulti.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

namespace orv {

namespace asio = boost::asio;

namespace {

/// Idle connections that are kept for the next request. An agent talks to one or two servers.
constexpr long keptConnections = 8;

void initializeCurl() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) throw std::runtime_error("The HTTP library cannot be set up");
}

}  // namespace

/// One socket of libcurl's, which opens and closes it itself.
struct CurlMulti::Watch {
    Watch(const asio::any_io_executor& executor, curl_socket_t socket)
        : descriptor(executor, socket) {}
    ~Watch() { descriptor.release(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    asio::posix::stream_descriptor descriptor;
    CURL* transfer = nullptr;       // the one that it serves, or one of several
    int interest = CURL_POLL_NONE;  // CURL_POLL_IN, CURL_POLL_OUT, both, or none
    int waiting = CURL_POLL_NONE;   // the directions with a wait under way
    bool isDropped = false;
};

std::shared_ptr<CurlMulti> CurlMulti::create(asio::any_io_executor executor) {
    return std::shared_ptr<CurlMulti>(new CurlMulti(std::move(executor)));
}

CurlMulti::CurlMulti(asio::any_io_executor runsOn) : executor(std::move(runsOn)), timer(executor) {
    initializeCurl();
    multi = curl_multi_init();
    if (multi == nullptr) throw std::runtime_error("The HTTP library cannot be set up");
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &CurlMulti::interestChanged);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &CurlMulti::timerChanged);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, keptConnections);
}

CurlMulti::~CurlMulti() {
    for (const auto& [transfer, listener] : running)
        curl_multi_remove_handle(multi, transfer);
    curl_multi_cleanup(multi);
}

void CurlMulti::add(CURL* transfer, Listener listener) {
    if (curl_multi_add_handle(multi, transfer) != CURLM_OK) {
        throw std::runtime_error("The HTTP library refused a transfer");
    }
    running.emplace(transfer, std::move(listener));
}

void CurlMulti::remove(CURL* transfer) {
    if (running.erase(transfer) > 0) curl_multi_remove_handle(multi, transfer);
}

int CurlMulti::interestChanged(CURL* transfer, curl_socket_t socket, int interest, void* self,
                               void*) {
    auto& multi = *static_cast<CurlMulti*>(self);
    const auto found = multi.watches.find(socket);
    if (interest == CURL_POLL_REMOVE) {
        if (found == multi.watches.end()) return 0;
        // The number may be in use for another socket before the waits have noticed.
        found->second->isDropped = true;
        found->second->descriptor.release();
        multi.watches.erase(found);
        return 0;
    }
    try {
        auto watch = found != multi.watches.end() ? found->second
                                                  : std::make_shared<Watch>(multi.executor, socket);
        multi.watches[socket] = watch;
        watch->transfer = transfer;
        watch->interest = interest;
        multi.waitFor(watch);
    } catch (const std::exception&) {
        return -1;  // the system has no room for one more; libcurl ends its transfers
    }
    return 0;
}

int CurlMulti::timerChanged(CURLM*, long milliseconds, void* self) {
    auto& multi = *static_cast<CurlMulti*>(self);
    if (milliseconds < 0) {
        multi.timer.cancel();
        return 0;
    }
    multi.timer.expires_after(std::chrono::milliseconds(milliseconds));
    multi.timer.async_wait([weak = multi.weak_from_this()](boost::system::error_code error) {
        const auto owner = weak.lock();
        if (owner && !error) owner->act(CURL_SOCKET_TIMEOUT, 0);
    });
    return 0;
}

void CurlMulti::waitFor(const std::shared_ptr<Watch>& watch) {
    waitFor(watch, CURL_POLL_IN);
    waitFor(watch, CURL_POLL_OUT);
}

void CurlMulti::waitFor(const std::shared_ptr<Watch>& watch, int direction) {
    const bool isWanted = (watch->interest & direction) != 0;
    if (!isWanted || (watch->waiting & direction) != 0) return;
    watch->waiting |= direction;
    const auto kind = direction == CURL_POLL_IN ? asio::posix::stream_descriptor::wait_read
                                                : asio::posix::stream_descriptor::wait_write;
    watch->descriptor.async_wait(
        kind, [weak = weak_from_this(), watch, direction](boost::system::error_code error) {
            watch->waiting &= ~direction;
            const auto owner = weak.lock();
            if (owner && !watch->isDropped) owner->became(watch, direction, error.failed());
        });
}

void CurlMulti::became(const std::shared_ptr<Watch>& watch, int direction, bool failed) {
    if ((watch->interest & direction) != 0) {
        const auto served = running.find(watch->transfer);
        if (direction == CURL_POLL_IN && served != running.end()) served->second.heard();
        const int event = direction == CURL_POLL_IN ? CURL_CSELECT_IN : CURL_CSELECT_OUT;
        act(watch->descriptor.native_handle(), failed ? CURL_CSELECT_ERR : event);
    }
    if (!watch->isDropped) waitFor(watch);
}

void CurlMulti::act(curl_socket_t socket, int events) {
    int stillRunning = 0;
    curl_multi_socket_action(multi, socket, events, &stillRunning);
    reportEnded();
}

void CurlMulti::reportEnded() {
    int waiting = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &waiting)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* transfer = message->easy_handle;
        const CURLcode result = message->data.result;  // the message goes with the transfer
        curl_multi_remove_handle(multi, transfer);
        auto ended = running.extract(transfer);
        if (ended.empty()) continue;
        asio::post(executor,
                   [listener = std::move(ended.mapped()), result] { listener.ended(result); });
    }
}

}  // namespace orv
