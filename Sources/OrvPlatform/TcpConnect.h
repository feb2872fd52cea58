#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"

namespace orv {

/// Connects to a host (a name, or an address without brackets). Throws UrlError; how long to try is
/// the caller's business.
Task<asio::ip::tcp::socket> connectTcp(std::string host, std::uint16_t port, Clock& clock);

/// Connects to one of the addresses (there must be some). They are tried in their order, the next
/// one after 250 ms or as soon as the one before has failed, and the first to answer wins: an
/// address family that leads nowhere costs no more than that. The socket sends at once
/// (TCP_NODELAY), probes a silent peer (keep-alive) and gives up one that confirms nothing. Throws
/// UrlError with the first reason.
Task<asio::ip::tcp::socket> connectToFirst(std::vector<asio::ip::tcp::endpoint> endpoints,
                                           Clock& clock);

}  // namespace orv
