#include "Support/FakeClock.h"

#include <algorithm>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

FakeClock::FakeClock() : wall(std::chrono::seconds(1772356502)) {
}

Task<void> FakeClock::sleepFor(std::chrono::nanoseconds duration) {
    sleeps.push_back(duration);
    const auto executor = co_await asio::this_coro::executor;
    const auto never = boost::asio::steady_timer::time_point::max();
    Sleeper sleeper{elapsed + std::max(duration, std::chrono::nanoseconds(0)),
                    boost::asio::steady_timer(executor, never)};
    const auto place = sleeping.insert(sleeping.end(), &sleeper);
    boost::system::error_code ignored;
    co_await sleeper.timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    if (!sleeper.isWoken) {
        sleeping.erase(place);
        throwCancellation();
    }
}

bool FakeClock::wakeNext(std::chrono::nanoseconds limit) {
    const auto next = std::min_element(
        sleeping.begin(), sleeping.end(),
        [](const Sleeper* a, const Sleeper* b) { return a->wakesAt < b->wakesAt; });
    const bool beyondLimit = next != sleeping.end() && limit != std::chrono::nanoseconds::max() &&
                             (*next)->wakesAt > limit;
    if (next == sleeping.end() || beyondLimit) {
        if (limit != std::chrono::nanoseconds::max()) moveTo(limit);
        return false;
    }
    Sleeper* sleeper = *next;
    sleeping.erase(next);
    moveTo(sleeper->wakesAt);
    sleeper->isWoken = true;
    sleeper->timer.cancel();
    return true;
}

void FakeClock::moveTo(std::chrono::nanoseconds time) {
    if (time <= elapsed) return;
    wall += std::chrono::duration_cast<WallTime::duration>(time - elapsed);
    elapsed = time;
}

}  // namespace orv
