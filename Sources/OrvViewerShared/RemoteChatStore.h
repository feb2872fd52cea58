#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/OpenFolder.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/RemoteChatMessage.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// The folder through which the daemon and the companion application hand each other messages, one
/// JSON file each; the files are the queue. Everybody may write and delete there, so links are not
/// followed, neither to the folder nor in it.
///
///     <public id>.<milliseconds since 1970 when written>.<id>.<direction>.json
///
/// Paths are the Mac's own. Everything here blocks, and may be called from any thread.
class RemoteChatStore {
public:
    static constexpr const char* directory = "/Users/Shared/Wsparo Brenvox/remote-chat";
    static constexpr std::size_t messageLimitBytes = std::size_t{1} << 20;
    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

    RemoteChatStore(SystemRoot root, const Clock& clock, const ViewerLogger& logger);

    /// These three log what went wrong instead of throwing it.
    void saveOutgoing(const std::string& publicId, const std::string& text,
                      const std::string& sender) const;
    void saveOutgoing(const RemoteChatMessage& message) const;
    /// An empty sender becomes "Konsultant".
    void saveIncoming(const std::string& publicId, const std::string& sender,
                      const std::string& text) const;

    /// For those who must know that it is there. Throws FileError.
    void save(const RemoteChatMessage& message) const;

    /// Whether a glance shows that nothing waits to be sent: at so few names that it may be taken
    /// where nothing may block. A folder that cannot be read shows nothing.
    bool showsNothingOutgoing(std::size_t mostNames = 32) const;

    /// The paths that come next after a given one, sorted, so that those of one conversation
    /// follow each other by time; memory is needed for so many only, however many there are.
    /// Without arguments all. A folder that cannot be read is logged and has none.
    std::vector<std::string> outgoingMessageFiles(const std::string& after = "",
                                                  std::size_t limit = unlimited) const;
    std::vector<std::string> incomingMessageFiles(const std::string& after = "",
                                                  std::size_t limit = unlimited) const;

    /// Nothing for a file that is gone, is no regular file, is larger than the limit, or holds
    /// anything but a message.
    std::optional<RemoteChatMessage> read(const std::string& path) const;

    /// A file that stays, or was not there, is no error.
    void remove(const std::string& path) const;

private:
    OpenFolder ensureDirectory() const;
    OpenFolder openDirectory() const;
    OpenFolder openParent() const;
    void saveOrLog(const RemoteChatMessage& message) const;
    std::vector<std::string> messageFiles(std::string_view suffix, const std::string& after,
                                          std::size_t limit) const;

    SystemRoot root;
    const Clock& clock;
    const ViewerLogger& logger;
};

}  // namespace orv
