#pragma once

#include <functional>
#include <map>
#include <memory>
#include <sys/types.h>

#include <boost/asio/signal_set.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// Tells, on the core thread, whose child has ended. One signal may stand for many ends, and there
/// are hundreds of programs at a time: only the owners of those that ended look at their child.
class ChildExitNotices : public std::enable_shared_from_this<ChildExitNotices> {
public:
    /// Waits for its child if that has ended. It may be told before, too.
    using Listener = std::function<void()>;

    /// To be owned by a shared pointer. From here on no end goes unnoticed: one before a listener
    /// was added is told to it soon after.
    explicit ChildExitNotices(const asio::any_io_executor& executor);

    /// The loop is kept alive while there are listeners.
    void add(pid_t child, Listener listener);

    /// Once the child has been waited for: another one may get its number then. A listener may
    /// remove itself while it is being told, but no other.
    void remove(pid_t child);

private:
    void waitForSignal();
    void tellThoseConcerned();
    void tellEveryone();

    asio::signal_set signals;
    std::map<pid_t, Listener> listeners;
    bool isWaiting = false;
};

}  // namespace orv
