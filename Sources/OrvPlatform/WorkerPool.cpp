#include "OrvPlatform/WorkerPool.h"

#include <boost/asio/async_result.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

struct WorkerPool::State {
    unsigned threadCount;
    std::optional<asio::thread_pool> threads;

    asio::thread_pool& started() {
        if (!threads) threads.emplace(threadCount);
        return *threads;
    }
};

WorkerPool::WorkerPool(unsigned threadCount) : state(std::make_unique<State>()) {
    state->threadCount = threadCount;
}

WorkerPool::~WorkerPool() {
    if (!state->threads) return;
    state->threads->stop();
    state->threads->join();
}

namespace {

/// The work with its way back: runs on a worker, then hands the outcome to the caller's executor.
template <typename Handler>
void workThenReturn(std::function<void()> work, Handler handler) {
    std::exception_ptr error;
    try {
        work();
    } catch (...) {
        error = std::current_exception();
    }
    work = nullptr;  // its last owner is the caller, who may go on as soon as it is posted
    const auto executor = asio::get_associated_executor(handler);
    asio::post(executor, [handler = std::move(handler), error]() mutable { handler(error); });
}

}  // namespace

Task<void> WorkerPool::runErased(std::function<void()> work) {
    if (state->threadCount == 0) {
        work();
        co_return;
    }
    asio::thread_pool& threads = state->started();
    auto initiate = [&threads](auto handler, std::function<void()> owned) {
        // Keeps the caller's loop alive while only the worker is busy.
        auto guard = asio::make_work_guard(asio::get_associated_executor(handler));
        asio::post(threads, [handler = std::move(handler), owned = std::move(owned),
                             guard = std::move(guard)]() mutable {
            workThenReturn(std::move(owned), std::move(handler));
        });
    };
    co_await asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr)>(
        initiate, asio::use_awaitable, std::move(work));
    const auto cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none) throwCancellation();
}

}  // namespace orv
