#include "OrvPlatform/ChildExitNotices.h"

#include <csignal>
#include <optional>
#include <sys/wait.h>
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

/// A child that has ended and was not waited for; 0 when all of them run, nothing when there are
/// none.
std::optional<pid_t> someEndedChild() {
    siginfo_t child{};  // not every system writes to it when all of them run
    if (::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0) return std::nullopt;
    return child.si_pid;
}

}  // namespace

ChildExitNotices::ChildExitNotices(const asio::any_io_executor& executor)
    : signals(executor, SIGCHLD) {
    makeHandlerUnobtrusive();
}

void ChildExitNotices::add(pid_t child, Listener listener) {
    listeners.insert_or_assign(child, std::move(listener));
    if (!isWaiting) waitForSignal();
}

void ChildExitNotices::remove(pid_t child) {
    listeners.erase(child);
    if (listeners.empty()) signals.cancel();
}

void ChildExitNotices::waitForSignal() {
    isWaiting = true;
    signals.async_wait([weak = weak_from_this()](boost::system::error_code error, int) {
        const std::shared_ptr<ChildExitNotices> self = weak.lock();
        if (!self) return;
        self->isWaiting = false;
        if (!error) self->tellThoseConcerned();
        // Also after a cancelled wait: somebody may have come since.
        if (!self->listeners.empty()) self->waitForSignal();
    });
}

void ChildExitNotices::tellThoseConcerned() {
    for (std::size_t left = listeners.size(); left > 0; --left) {
        const std::optional<pid_t> ended = someEndedChild();
        if (ended == 0) return;
        const auto found = ended ? listeners.find(*ended) : listeners.end();
        // A stranger's child hides what ended behind it, and where there is no child left,
        // somebody else has waited for ours.
        if (found == listeners.end()) return tellEveryone();
        const Listener told = found->second;  // a copy: it may go meanwhile
        told();
    }
}

void ChildExitNotices::tellEveryone() {
    for (auto listener = listeners.begin(); listener != listeners.end();) {
        const Listener told = (listener++)->second;
        told();
    }
}

}  // namespace orv
