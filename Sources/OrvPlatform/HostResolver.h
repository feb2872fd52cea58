#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// The addresses of a host (a name, or an address without brackets), in the system's order of
/// preference; never empty. Throws UrlError: cannotFindHost, or dnsLookupFailed when the name
/// service itself is in trouble. A cancelled look-up ends at once, whatever the name service does.
Task<std::vector<asio::ip::tcp::endpoint>> resolveHost(std::string host, std::uint16_t port);

}  // namespace orv
