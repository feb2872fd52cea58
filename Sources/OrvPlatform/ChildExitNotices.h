#pragma once

#include <functional>
#include <list>
#include <memory>

#include <boost/asio/signal_set.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// Tells, on the core thread, that some child of this process may have ended. One signal may stand
/// for many ends, so every listener looks at its own child each time.
class ChildExitNotices : public std::enable_shared_from_this<ChildExitNotices> {
public:
    using Listener = std::function<void()>;
    using Subscription = std::list<Listener>::iterator;

    /// To be owned by a shared pointer. From here on no end goes unnoticed: one before a listener
    /// was added is told to it soon after.
    explicit ChildExitNotices(const asio::any_io_executor& executor);

    /// The loop is kept alive while there are listeners.
    Subscription add(Listener listener);

    /// A listener may remove itself while it is being told, but no other.
    void remove(Subscription subscription);

private:
    void waitForSignal();
    void tellEveryone();

    asio::signal_set signals;
    std::list<Listener> listeners;
    bool isWaiting = false;
};

}  // namespace orv
