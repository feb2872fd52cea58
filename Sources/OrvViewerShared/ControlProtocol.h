#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/AgentIdentity.h"
#include "OrvViewerShared/RemoteSessionRequest.h"

/// What is said on the control socket and when it is opened again; no input or output here.
namespace orv {

/// The control socket's address on a helpdesk: wss for https (whatever the letters' case), ws
/// otherwise, and always the path /api/agent/control; host, port and query are the base URL's.
/// Nothing when the base URL is none.
std::optional<std::string> controlUrl(std::string_view serverBaseUrl);

/// The first message after opening.
Json controlHello(const AgentIdentity& identity);

Json controlHeartbeat(const AgentIdentity& identity, WallTime now);

/// What an incoming message means.
namespace control {
struct Ready {};
struct HeartbeatAcknowledged {};
struct CommandQueued {
    std::string commandType;  // "-" when the message names none
};
struct RemoteSessionRequested {
    RemoteSessionRequest request;
};
struct MalformedRemoteSessionRequest {};
struct Rejected {
    int status = 401;
    std::string detail;
};
struct Other {
    std::string type;
};
using Message = std::variant<Ready, HeartbeatAcknowledged, CommandQueued, RemoteSessionRequested,
                             MalformedRemoteSessionRequest, Rejected, Other>;

/// The message must be an object.
Message interpret(const Json& message);
}  // namespace control

/// How long to wait before a connection is opened again. Failures in a row wait 2 s, then twice as
/// long each time up to the cap (which may be below 2 s: it applies from the second wait on).
///
/// | end of the connection                                     | wait | next failure waits |
/// |-----------------------------------------------------------|------|--------------------|
/// | closed by the server in good order (1000, 1001)           | none | 2 s                |
/// | the same, the second in a row or later to live under 2 s  | as a failure              |
/// | anything else                                             | now  | double, up to cap  |
class ReconnectPolicy {
public:
    explicit ReconnectPolicy(std::chrono::seconds cap) : cap(cap) {}

    /// A connection was closed in good order. Returns whether that is a normal end; otherwise it
    /// is to be treated as a failure, for a server that closes at once must not make us spin.
    bool closedInGoodOrder(std::chrono::nanoseconds lifetime);

    /// A connection failed, or could not be opened. Not to be called for one that closed.
    void failed() { shortLivedInARow = 0; }

    /// The wait that is due now.
    std::chrono::seconds nextWait();

private:
    std::chrono::seconds cap;
    std::chrono::seconds next{2};
    int shortLivedInARow = 0;
};

}  // namespace orv
