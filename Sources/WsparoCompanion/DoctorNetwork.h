#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/UrlError.h"
#include "OrvPlatform/WebSocket.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "OrvViewerShared/ViewerState.h"
#include "WsparoCompanion/DoctorReport.h"
#include "WsparoCompanion/HelpdeskAccess.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Why a server's certificate was not accepted, or a connection could not be made, as people read
/// it.
std::string networkReason(const UrlError& error, Language language);

/// Looks at the way to the helpdesk, step by step as a connection takes it: name, TLS, HTTPS,
/// credentials, clock, control connection. It must outlive its task.
class DoctorNetwork {
public:
    struct Parts {
        const Surroundings& surroundings;
        ViewerSettings settings;
        std::optional<ViewerState> state;
        HelpdeskAccess& access;
        WebSocketConnector& webSockets;
        ProxyLookup proxyFor;
        DoctorReport& report;
    };

    explicit DoctorNetwork(Parts given) : parts(std::move(given)) {}

    /// Tells everything to the report; an exit status for the sake of whoever runs tasks.
    Task<int> diagnose();

private:
    struct Server {
        std::string host;
        std::uint16_t port = 443;
        std::string shown() const;
    };

    Task<bool> diagnoseName();
    void skipExchange();
    Task<bool> diagnoseExchange();
    void diagnoseFailure(const UrlError& error);
    void diagnoseCredentials(const HttpResponse& response);
    void diagnoseClock(const HttpResponse& response);
    Task<void> diagnoseControl();
    Task<bool> greet(std::shared_ptr<WebSocketConnection> connection);
    Server server() const;

    template <typename... Values>
    std::string say(Bilingual text, const Values&... values) const {
        return parts.surroundings.say(text, values...);
    }

    Parts parts;
};

}  // namespace orv::companion
