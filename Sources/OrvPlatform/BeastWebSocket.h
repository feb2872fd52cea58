#pragma once

#include <memory>

#include "OrvPlatform/BeastWebSocketConnection.h"
#include "OrvPlatform/Clock.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/TlsTrust.h"
#include "OrvPlatform/WebSocket.h"

namespace boost::asio::ssl {
class context;
}

namespace orv {

/// Opens WebSockets over TLS, straight or through the system's proxy. There is no unencrypted
/// path: a ws URL is refused as unsupportedUrl. Messages are limited to 1 MiB (uncompressed);
/// larger ones end the connection with dataLengthExceedsMaximum. Opening is limited as a whole
/// (timedOut).
class BeastWebSocketConnector final : public WebSocketConnector {
public:
    struct Parts {
        const TlsTrust& trust;  // used by the constructor only
        Clock& clock;           // must outlive the connector and its connections
        ProxyLookup proxyFor = systemProxyFor;
        WebSocketTimes times = {};
    };

    explicit BeastWebSocketConnector(Parts parts);
    ~BeastWebSocketConnector() override;

    Task<std::unique_ptr<WebSocketConnection>> connect(WebSocketRequest request) override;

private:
    std::shared_ptr<asio::ssl::context> context;
    Clock& clock;
    ProxyLookup proxyFor;
    WebSocketTimes times;
};

}  // namespace orv
