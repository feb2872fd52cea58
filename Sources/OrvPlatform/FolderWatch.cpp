#include "OrvPlatform/FolderWatch.h"

#include <utility>

#include <boost/asio/use_awaitable.hpp>

namespace orv {

FolderWatch::FolderWatch(const asio::any_io_executor& executor, const std::string& path)
    : notices(executor) {
    Source source = begin(path);
    folder = std::move(source.folder);
    notices.assign(source.notices.release());
}

Task<bool> FolderWatch::changed() {
    co_await notices.async_wait(asio::posix::stream_descriptor::wait_read, asio::use_awaitable);
    co_return takeNotices(notices.native_handle());
}

}  // namespace orv
