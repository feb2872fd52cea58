#pragma once

#include <cstdint>
#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/Task.h"

namespace orv {

/// A connection to a host through an HTTP proxy (CONNECT); what is read and written from then on
/// is the host's. Throws UrlError: cannotConnectToHost, with the status, when the proxy refuses.
Task<asio::ip::tcp::socket> connectThroughProxy(ProxyAddress proxy, std::string host,
                                                std::uint16_t port, Clock& clock);

}  // namespace orv
