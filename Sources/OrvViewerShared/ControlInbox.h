#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "OrvPlatform/Task.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvViewerShared/ControlProtocol.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// Handles the control socket's messages one after the other, in the order of their arrival. It
/// knows no connection: what has arrived takes effect whatever becomes of the connection, and while
/// the wake handler is at work for minutes a new connection's messages line up behind the old
/// one's.
class ControlInbox {
public:
    /// Waiting messages, with the one that may be under way when reading is paused.
    static constexpr std::size_t mostWaiting = 64;

    struct Parts {
        const ViewerLogger& log;
        TaskGroup& tasks;  // the wake handler runs there
        std::function<Task<void>()> wakeHandler;
        std::function<void(RemoteSessionRequest)> startRemoteSession;
        /// Told whenever it may have changed whether more can be taken.
        std::function<void()> roomChanged;
    };

    explicit ControlInbox(Parts parts) : parts(std::move(parts)) {}
    ControlInbox(const ControlInbox&) = delete;
    ControlInbox& operator=(const ControlInbox&) = delete;

    /// At once when nothing is being handled. Not for a rejection, which is its connection's end
    /// and no message to be handled.
    void add(control::Message message);

    /// Whoever reads should stop reading; what arrives nevertheless is taken.
    bool isFull() const { return waiting.size() + 1 >= mostWaiting; }

private:
    void handleWaiting();
    void handle(control::Message message);
    Task<void> wake();

    Parts parts;
    std::deque<control::Message> waiting;
    bool isHandlerAtWork = false;
};

}  // namespace orv
