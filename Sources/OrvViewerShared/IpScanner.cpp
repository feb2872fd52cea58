#include "OrvViewerShared/IpScanner.h"

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/ConcurrencyLimit.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvViewerShared/Commands/Payload.h"
#include "OrvViewerShared/HostProbe.h"

namespace orv {

using namespace std::chrono_literals;

/// One that answered; what is unknown stays absent.
struct IpScanner::Host {
    std::uint32_t address = 0;
    std::optional<double> latencyMilliseconds;
    std::optional<std::string> hardwareAddress;
    std::optional<std::string> name;
};

namespace {

constexpr auto toolTimeout = 5s;
constexpr auto networkTimeout = 60s;
constexpr std::size_t longestAnswer = std::size_t{64} * 1024;

// When the system has no room for one more process, the probes that run make some.
constexpr auto pauseBeforeNextStart = 20ms;
constexpr int startAttempts = 100;

std::int64_t milliseconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

Task<void> cancelAfter(Clock& clock, std::chrono::nanoseconds duration, TaskGroup& group) {
    co_await clock.sleepFor(duration);
    group.cancel();
}

/// A probe has nobody to report a failure to: a host without an answer is silent.
void ignoreFailure(const std::string&, const std::exception&) {
}

}  // namespace

IpScanner::IpScanner(Parts given) : parts(std::move(given)) {
}

Task<Json> IpScanner::scan(Json payload) {
    const WallTime startedAt = parts.clock.now();
    const MonotonicTime begin = parts.clock.monotonicNow();
    const Wanted wanted{
        std::chrono::milliseconds(payloadInt(payloadValue(payload, "timeout_ms"), 350, 100, 2000)),
        payloadBool(payloadValue(payload, "resolve_hostnames"), true)};
    const auto maxPrefixLength =
        static_cast<int>(payloadInt(payloadValue(payload, "max_prefix_length"), 24, 24, 30));

    Json networks = Json::array();
    std::size_t hostCount = 0;
    for (LocalNetwork& network : enumerateNetworks(parts.interfaces(), maxPrefixLength)) {
        Json scanned = co_await scanNetwork(std::move(network), wanted);
        hostCount += scanned.at("hosts").size();
        networks.push_back(std::move(scanned));
    }
    co_return Json{{"scanner", "orv-viewer-macos"},
                   {"started_at", iso8601(startedAt)},
                   {"completed_at", iso8601(parts.clock.now())},
                   {"duration_ms", milliseconds(parts.clock.monotonicNow() - begin)},
                   {"network_count", networks.size()},
                   {"host_count", hostCount},
                   {"networks", std::move(networks)}};
}

Task<Json> IpScanner::scanNetwork(LocalNetwork network, Wanted wanted) {
    const auto found = std::make_shared<Hosts>();
    {
        TaskGroup probes(parts.executor, ignoreFailure);
        TaskGroup deadline(parts.executor, ignoreFailure);
        probes.spawn("network probes", probeAll(network.hosts, wanted, found));
        deadline.spawn("scan deadline", cancelAfter(parts.clock, networkTimeout, probes));
        co_await probes.join();
        deadline.cancel();
        co_await deadline.join();
    }
    // No address is probed twice, so any sort is stable.
    std::sort(found->begin(), found->end(),
              [](const auto& a, const auto& b) { return a->address < b->address; });
    Json hosts = Json::array();
    for (const auto& host : *found) {
        Json entry{{"ip", ipv4String(host->address)}, {"status", "up"}};
        if (host->latencyMilliseconds) entry["latency_ms"] = *host->latencyMilliseconds;
        if (host->hardwareAddress) entry["mac"] = *host->hardwareAddress;
        if (host->name) entry["hostname"] = *host->name;
        hosts.push_back(std::move(entry));
    }
    const std::string address = ipv4String(network.networkAddress);
    co_return Json{{"interface", network.interfaceName},
                   {"local_ip", ipv4String(network.localAddress)},
                   {"network", address},
                   {"cidr", fmt::format("{}/{}", address, network.prefixLength)},
                   {"scanned_hosts", network.hosts.size()},
                   {"hosts", std::move(hosts)}};
}

Task<void> IpScanner::probeAll(std::vector<std::uint32_t> addresses, Wanted wanted,
                               std::shared_ptr<Hosts> found) {
    TaskGroup probes(parts.executor, ignoreFailure);
    ConcurrencyLimit places(parts.probesAtOnce);
    struct Running {
        static Task<void> probe(IpScanner* scanner, ConcurrencyLimit::Slot slot,
                                std::uint32_t address, Wanted wanted,
                                std::shared_ptr<Hosts> found) {
            const ConcurrencyLimit::Slot kept = std::move(slot);
            co_await scanner->probe(address, wanted, std::move(found));
        }
    };
    for (const std::uint32_t address : addresses) {
        ConcurrencyLimit::Slot slot = co_await places.acquire();
        probes.spawn("probe", Running::probe(this, std::move(slot), address, wanted, found));
        // Between two starts everything else that is ready has its turn.
        co_await asio::post(parts.executor, asio::use_awaitable);
    }
    co_await probes.join();
}

Task<void> IpScanner::probe(std::uint32_t address, Wanted wanted, std::shared_ptr<Hosts> found) {
    const std::string text = ipv4String(address);
    const std::optional<std::string> answer = co_await ping(text, wanted.timeout);
    if (!answer) co_return;
    // Listed from here on, whatever becomes of the other questions.
    const auto host = std::make_shared<Host>();
    host->address = address;
    host->latencyMilliseconds = parsePingLatency(*answer);
    found->push_back(host);

    std::vector<std::string> arguments{"-n", text};
    const auto neighbour = co_await answerOf("/usr/sbin/arp", std::move(arguments));
    if (neighbour) host->hardwareAddress = parseHardwareAddress(*neighbour);
    if (wanted.resolveHostnames) host->name = co_await hostname(text);
}

Task<std::optional<std::string>> IpScanner::ping(std::string host,
                                                 std::chrono::milliseconds timeout) {
    std::vector<std::string> arguments{"-c", "1", "-W", std::to_string(timeout.count()), host};
    co_return co_await answerOf("/sbin/ping", std::move(arguments));
}

Task<std::optional<std::string>> IpScanner::hostname(std::string address) {
    std::vector<std::string> arguments{"-q", "host", "-a", "ip_address", std::move(address)};
    const auto names = co_await answerOf("/usr/bin/dscacheutil", std::move(arguments));
    co_return names ? parseHostName(*names) : std::nullopt;
}

/// What the tool printed, if it ended with status 0; nothing otherwise.
Task<std::optional<std::string>> IpScanner::answerOf(std::string tool,
                                                     std::vector<std::string> arguments) {
    const auto output = std::make_shared<std::string>();
    ProcessRequest request;
    request.executable = parts.root.locate(tool);
    request.arguments = std::move(arguments);
    request.timeout = toolTimeout;
    request.onStandardOutput = [output](std::string_view bytes) {
        output->append(bytes.substr(0, longestAnswer - std::min(longestAnswer, output->size())));
    };
    for (int attempt = 1;; ++attempt) {
        try {
            const ProcessResult result = co_await parts.processes.run(request);
            if (result.timedOut || result.end != ProcessEnd(Exited{0})) co_return std::nullopt;
            co_return *output;
        } catch (const LaunchError& error) {
            if (!error.isTemporary() || attempt == startAttempts) co_return std::nullopt;
        }
        co_await parts.clock.sleepFor(pauseBeforeNextStart);
    }
}

}  // namespace orv
