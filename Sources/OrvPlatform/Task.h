#pragma once

#include <optional>
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

namespace orv {

namespace asio = boost::asio;

/// A coroutine on the core thread. It throws what it fails with; when it is cancelled it throws
/// boost::system::system_error with asio::error::operation_aborted (see isCancellation), which is
/// how every interrupted wait of this program ends.
template <typename Value = void>
using Task = asio::awaitable<Value>;

/// The task with its value left at the place, which must outlive it: for code that runs tasks
/// without knowing what they return, and is compiled once for all of them.
template <typename Value>
Task<void> keepValue(Task<Value> task, std::optional<Value>* place) {
    Value value = co_await std::move(task);
    place->emplace(std::move(value));
}

}  // namespace orv
