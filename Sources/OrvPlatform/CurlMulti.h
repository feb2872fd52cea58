#pragma once

#include <functional>
#include <map>
#include <memory>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <curl/curl.h>

namespace orv {

/// libcurl's transfers on an executor: its sockets and its timer are waited for there, so nothing
/// is polled, and an idle one waits for nothing at all. Owns the connection pool. To be used on the
/// executor's one thread, and never from within a callback of libcurl.
class CurlMulti : public std::enable_shared_from_this<CurlMulti> {
public:
    struct Listener {
        /// Something has come from the other side.
        std::function<void()> heard;
        /// Called with the outcome at a later turn of the executor, never from within libcurl. By
        /// then the transfer has been removed.
        std::function<void(CURLcode)> ended;
    };

    static std::shared_ptr<CurlMulti> create(boost::asio::any_io_executor executor);
    ~CurlMulti();
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;

    /// Starts a transfer; the caller keeps owning the handle. Throws std::runtime_error.
    void add(CURL* transfer, Listener listener);

    /// Ends a transfer before its time; nothing when it has ended. A call of "ended" that is
    /// already on its way still comes.
    void remove(CURL* transfer);

private:
    struct Watch;

    explicit CurlMulti(boost::asio::any_io_executor executor);

    static int interestChanged(CURL* transfer, curl_socket_t socket, int interest, void* self,
                               void*);
    static int timerChanged(CURLM*, long milliseconds, void* self);

    void waitFor(const std::shared_ptr<Watch>& watch);
    void waitFor(const std::shared_ptr<Watch>& watch, int direction);
    void became(const std::shared_ptr<Watch>& watch, int direction, bool failed);
    void act(curl_socket_t socket, int events);
    void reportEnded();

    boost::asio::any_io_executor executor;
    boost::asio::steady_timer timer;
    std::map<curl_socket_t, std::shared_ptr<Watch>> watches;
    std::map<CURL*, Listener> running;
    CURLM* multi;
};

}  // namespace orv
