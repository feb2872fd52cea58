#include "OrvPlatform/ChildExitNotices.h"

#include <csignal>
#include <utility>

namespace orv {

namespace {

/// Asio installs its handler without these: no child's end shall interrupt another thread's
/// system call, and a child that is merely stopped is of no interest.
void makeHandlerUnobtrusive() {
    struct sigaction action{};
    if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
    action.sa_flags |= SA_RESTART | SA_NOCLDSTOP;
    ::sigaction(SIGCHLD, &action, nullptr);
}

}  // namespace

ChildExitNotices::ChildExitNotices(const asio::any_io_executor& executor)
    : signals(executor, SIGCHLD) {
    makeHandlerUnobtrusive();
}

ChildExitNotices::Subscription ChildExitNotices::add(Listener listener) {
    const Subscription subscription = listeners.insert(listeners.end(), std::move(listener));
    if (!isWaiting) waitForSignal();
    return subscription;
}

void ChildExitNotices::remove(Subscription subscription) {
    listeners.erase(subscription);
    if (listeners.empty()) signals.cancel();
}

void ChildExitNotices::waitForSignal() {
    isWaiting = true;
    signals.async_wait([weak = weak_from_this()](boost::system::error_code error, int) {
        const std::shared_ptr<ChildExitNotices> self = weak.lock();
        if (!self) return;
        self->isWaiting = false;
        if (!error) self->tellEveryone();
        // Also after a cancelled wait: somebody may have come since.
        if (!self->listeners.empty()) self->waitForSignal();
    });
}

void ChildExitNotices::tellEveryone() {
    for (auto listener = listeners.begin(); listener != listeners.end();) {
        const Listener told = *listener++;  // a copy: it may leave the list meanwhile
        told();
    }
}

}  // namespace orv
