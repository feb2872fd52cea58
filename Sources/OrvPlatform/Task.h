#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

namespace orv {

namespace asio = boost::asio;

/// A coroutine on the core thread. It throws what it fails with; when it is cancelled it throws
/// boost::system::system_error with asio::error::operation_aborted (see isCancellation), which is
/// how every interrupted wait of this program ends.
template <typename Value = void>
using Task = asio::awaitable<Value>;

}  // namespace orv
