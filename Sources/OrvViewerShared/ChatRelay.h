#pragma once

#include <cstddef>
#include <string>

#include "OrvPlatform/AsyncEvent.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// Takes what the person at the Mac wrote to the server. A message's file goes when the server has
/// it, and stays for the next call when it has not.
class ChatRelay {
public:
    struct Parts {
        asio::any_io_executor executor;
        const RemoteChatStore& store;
        const DeviceRegistration& registration;
        OrvDeskApiClient& apiClient;
        WorkerPool& workers;
        const ViewerLogger& logger;
        /// How many files are looked at before the folder is read again.
        std::size_t filesAtOnce = 4096;
    };

    explicit ChatRelay(Parts parts);

    /// Sends the waiting messages in the order of the list; nothing while the device is not
    /// registered. The reason goes into the log. Of several calls one works and one waits for it;
    /// further ones return at once, because the waiting one will see what they came for. Only
    /// cancellation is thrown.
    Task<void> sendPendingChatMessages(std::string reason);

private:
    Task<void> sendAll(std::string deviceUid, std::string reason);
    Task<void> sendOne(std::string path, std::string deviceUid, std::string reason);

    Parts parts;
    AsyncEvent ended;
    bool isSending = false;
    bool isOneWaiting = false;
};

}  // namespace orv
