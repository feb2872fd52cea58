#pragma once

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// Shows a consultant's message to the person at the Mac: leaves it in the chat folder, where the
/// companion application finds it.
class NotifyCommand {
public:
    struct Parts {
        const RemoteChatStore& store;
        const DeviceRegistration& registration;
        WorkerPool& workers;
        const Clock& clock;
        const ViewerLogger& logger;
    };

    explicit NotifyCommand(Parts parts) : parts(parts) {}

    /// "message", and optionally "title", "sender", "public_id" (texts) and "chat_message_id" (an
    /// integer, handed back); a value of another type counts as absent. A blank message is
    /// answered alike, but nobody gets it. Throws FileError when it cannot be left there.
    Task<Json> handleUserNotification(Json payload);

private:
    Parts parts;
};

}  // namespace orv
