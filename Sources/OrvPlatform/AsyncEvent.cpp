#include "OrvPlatform/AsyncEvent.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

AsyncEvent::AsyncEvent(const asio::any_io_executor& executor)
    : never(executor, asio::steady_timer::time_point::max()) {
}

Task<void> AsyncEvent::wait() {
    boost::system::error_code woken;
    co_await never.async_wait(asio::redirect_error(asio::use_awaitable, woken));
    // Being notified and being told to stop end the wait alike.
    const auto cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none) throwCancellation();
}

}  // namespace orv
