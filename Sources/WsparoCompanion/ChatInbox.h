#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "OrvViewerShared/RemoteChatMessage.h"
#include "OrvViewerShared/RemoteChatStore.h"

namespace orv::companion {

/// When a message's file was written, as its name tells, in milliseconds since 1970; 0 when it does
/// not. The store's own order goes by conversation first.
std::int64_t writtenAt(std::string_view path);

/// The paths from the oldest on.
std::vector<std::string> byTime(std::vector<std::string> paths);

/// Which incoming messages have not been seen yet.
class ChatInbox {
public:
    explicit ChatInbox(const RemoteChatStore& store) : store(store) {}

    /// From the oldest on. A file that cannot be read now is looked at again the next time: it may
    /// still be written to.
    std::vector<RemoteChatMessage> takeNew();

    /// What is there now counts as seen.
    void skipAll();

private:
    const RemoteChatStore& store;
    std::set<std::string> seen;  // only of those that are still there
};

}  // namespace orv::companion
