#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/NetworkInterfaces.h"
#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/LocalNetworks.h"

namespace orv {

/// Finds the hosts that answer in this Mac's IPv4 networks, with latency, hardware address and
/// name. Probes of one network run side by side, networks one after the other. Whatever the tools
/// do, a network is done within a minute, with what is known by then; nothing fails but by
/// cancellation.
class IpScanner {
public:
    struct Parts {
        asio::any_io_executor executor;
        ProcessRunner& processes;
        Clock& clock;
        SystemRoot root;
        std::function<std::vector<Ipv4Interface>()> interfaces = ipv4Interfaces;
        std::size_t probesAtOnce = 256;
    };

    explicit IpScanner(Parts parts);

    /// Payload: "timeout_ms" (100 to 2000, default 350), "max_prefix_length" (24 to 30, default
    /// 24: no scan covers more than 254 hosts an interface), "resolve_hostnames" (default true).
    Task<Json> scan(Json payload);

private:
    struct Wanted {
        std::chrono::milliseconds timeout;
        bool resolveHostnames = false;
    };
    struct Host;
    using Hosts = std::vector<std::shared_ptr<Host>>;

    Task<Json> scanNetwork(LocalNetwork network, Wanted wanted);
    Task<void> probeAll(std::vector<std::uint32_t> addresses, Wanted wanted,
                        std::shared_ptr<Hosts> found);
    Task<void> probe(std::uint32_t address, Wanted wanted, std::shared_ptr<Hosts> found);
    Task<std::optional<std::string>> ping(std::string host, std::chrono::milliseconds timeout);
    Task<std::optional<std::string>> hostname(std::string address);
    Task<std::optional<std::string>> answerOf(std::string tool, std::vector<std::string> arguments);

    Parts parts;
};

}  // namespace orv
