#include "OrvPlatform/ConcurrencyLimit.h"

#include <list>
#include <utility>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

namespace {

/// Somebody in the queue, for as long as the waiting coroutine lives.
struct Waiter {
    Waiter(std::list<Waiter*>& joined, const asio::any_io_executor& executor)
        : queue(joined), timer(executor, boost::asio::steady_timer::time_point::max()) {
        queue.push_back(this);
    }
    ~Waiter() {
        if (!hasPlace) queue.remove(this);
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    std::list<Waiter*>& queue;
    boost::asio::steady_timer timer;
    bool hasPlace = false;
};

}  // namespace

struct ConcurrencyLimit::State {
    std::size_t freePlaces;
    std::list<Waiter*> queue;

    void giveBack() {
        if (queue.empty()) {
            ++freePlaces;
            return;
        }
        // The place passes straight to the longest waiting, so that no newcomer overtakes it.
        Waiter* next = queue.front();
        queue.pop_front();
        next->hasPlace = true;
        next->timer.cancel();
    }
};

ConcurrencyLimit::Slot::~Slot() {
    if (state != nullptr) state->giveBack();
}

ConcurrencyLimit::ConcurrencyLimit(std::size_t places) : state(std::make_shared<State>()) {
    state->freePlaces = places;
}

Task<ConcurrencyLimit::Slot> ConcurrencyLimit::acquire() {
    const std::shared_ptr<State> kept = state;
    if (kept->freePlaces > 0) {
        --kept->freePlaces;
        co_return Slot(kept);
    }
    const auto executor = co_await asio::this_coro::executor;
    Waiter waiter(kept->queue, executor);
    boost::system::error_code ignored;
    co_await waiter.timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    if (!waiter.hasPlace) throwCancellation();
    co_return Slot(kept);
}

}  // namespace orv
