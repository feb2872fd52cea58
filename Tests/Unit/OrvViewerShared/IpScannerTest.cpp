#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/HostProbe.h"
#include "OrvViewerShared/IpScanner.h"
#include "Support/FakeClock.h"
#include "Support/FakeProcessRunner.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

constexpr std::uint32_t homeAddress = 0xC0A8010A;  // 192.168.1.10

Ipv4Interface interfaceWith(std::uint32_t netmask, std::string name = "en0",
                            std::uint32_t address = homeAddress) {
    return {std::move(name), address, netmask, true, false, false};
}

TEST(LocalNetworksTest, aUsualNetworkHas254Hosts) {
    const auto networks = enumerateNetworks({interfaceWith(0xFFFFFF00)}, 24);
    ASSERT_THAT(networks, SizeIs(1));
    EXPECT_EQ(networks[0].interfaceName, "en0");
    EXPECT_EQ(networks[0].localAddress, homeAddress);
    EXPECT_EQ(networks[0].networkAddress, 0xC0A80100u);
    EXPECT_EQ(networks[0].prefixLength, 24);
    ASSERT_THAT(networks[0].hosts, SizeIs(254));
    EXPECT_EQ(networks[0].hosts.front(), 0xC0A80101u);
    EXPECT_EQ(networks[0].hosts.back(), 0xC0A801FEu);
}

TEST(LocalNetworksTest, everyNetmaskGivesItsBlock) {
    const struct {
        std::uint32_t netmask;
        int maxPrefixLength;
        int prefixLength;
        std::size_t hosts;
    } rows[] = {
        {0xFF000000, 24, 24, 254}, {0xFFFF0000, 24, 24, 254}, {0xFFFFFE00, 24, 24, 254},
        {0xFFFFFF00, 30, 30, 2},   {0xFFFFFFF8, 24, 29, 6},   {0xFFFFFFFC, 24, 30, 2},
        {0xFFFFFFFE, 24, 31, 0},   {0xFFFFFFFF, 24, 32, 0},   {0xFF00FF00, 24, 24, 254},
    };
    for (const auto& row : rows) {
        const auto networks = enumerateNetworks({interfaceWith(row.netmask)}, row.maxPrefixLength);
        ASSERT_THAT(networks, SizeIs(1));
        EXPECT_EQ(networks[0].prefixLength, row.prefixLength) << std::hex << row.netmask;
        EXPECT_THAT(networks[0].hosts, SizeIs(row.hosts)) << std::hex << row.netmask;
    }
}

TEST(LocalNetworksTest, theTopOfTheAddressSpaceEnds) {
    const auto networks = enumerateNetworks({interfaceWith(0xFFFFFF00, "en0", 0xFFFFFF07)}, 24);
    EXPECT_THAT(networks.at(0).hosts, SizeIs(254));
}

TEST(LocalNetworksTest, interfacesThatLeadToNoNetworkAreLeftOut) {
    Ipv4Interface loopback = interfaceWith(0xFF000000, "lo0", 0x7F000001);
    Ipv4Interface otherLoopback = interfaceWith(0xFF000000, "lo");
    otherLoopback.isLoopback = true;
    Ipv4Interface down = interfaceWith(0xFFFFFF00);
    down.isUp = false;
    Ipv4Interface tunnel = interfaceWith(0xFFFFFFFF, "utun0");
    tunnel.isPointToPoint = true;
    EXPECT_THAT(enumerateNetworks({loopback, otherLoopback, down, tunnel, interfaceWith(0)}, 24),
                IsEmpty());
}

TEST(LocalNetworksTest, aBlockOfOneInterfaceIsScannedOnce) {
    const auto networks =
        enumerateNetworks({interfaceWith(0xFFFFFF00, "en1"), interfaceWith(0xFFFF0000, "en0"),
                           interfaceWith(0xFFFFFF00, "en1", homeAddress + 5),
                           interfaceWith(0xFFFFFF00, "en1", homeAddress + 0x100)},
                          24);
    ASSERT_THAT(networks, SizeIs(3));
    EXPECT_EQ(networks[0].interfaceName, "en1");
    EXPECT_EQ(networks[1].interfaceName, "en0");
    EXPECT_EQ(networks[2].networkAddress, 0xC0A80200u);
}

TEST(HostProbeTest, findsTheLatencyAsPingPrintedIt) {
    EXPECT_THAT(parsePingLatency("64 bytes from 192.168.1.1: icmp_seq=0 ttl=64 time=3.512 ms\n"),
                Optional(3.512));
    EXPECT_THAT(parsePingLatency("64 bajty z 192.168.1.1: czas time=3,5 ms"), Optional(3.5));
    EXPECT_THAT(parsePingLatency("a time=12 ms\nb time=99 ms (DUP!)"), Optional(12.0));
    for (const char* output : {"", "1 packets received", "time=", "time= 3", "time=x", "time=."}) {
        EXPECT_EQ(parsePingLatency(output), std::nullopt) << output;
    }
}

TEST(HostProbeTest, findsTheHardwareAddressAndPadsItsGroups) {
    EXPECT_THAT(parseHardwareAddress("? (192.168.1.1) at A:b:C:1:2:3 on en0 ifscope [ethernet]"),
                Optional(std::string("0a:0b:0c:01:02:03")));
    EXPECT_THAT(parseHardwareAddress("router (10.0.0.1) at 00:11:22:33:44:55"),
                Optional(std::string("00:11:22:33:44:55")));
    for (const char* output : {"", "? (10.0.0.1) at (incomplete) on en0 ifscope [ethernet]",
                               "10.0.0.1 (10.0.0.1) -- no entry", "x at ", "x at 1:2:3:4:5",
                               "x at 1:2:3:4:5:6:7", "x at 1:2:3:4:5:zz", "x at 1:2:3:4:5:"}) {
        EXPECT_EQ(parseHardwareAddress(output), std::nullopt) << output;
    }
}

TEST(HostProbeTest, findsTheFirstName) {
    EXPECT_THAT(parseHostName("\nname: router.local\nip_address: 192.168.1.1\nname: other\n"),
                Optional(std::string("router.local")));
    EXPECT_EQ(parseHostName("ip_address: 10.0.0.1"), std::nullopt);
    EXPECT_EQ(parseHostName("name: \nname: second"), std::nullopt);
    EXPECT_EQ(parseHostName(""), std::nullopt);
}

class IpScannerTest : public testing::Test {
protected:
    Json scan(const Json& payload = Json::object()) { return loop.run(scanner.scan(payload)); }

    static std::string ip(int last) { return "192.168.1." + std::to_string(last); }

    void hostAnswers(int last, const std::string& timeoutMs = "350") {
        processes.answer(
            "/sbin/ping", {"-c", "1", "-W", timeoutMs, ip(last)},
            {.standardOutput = "64 bytes: icmp_seq=0 ttl=64 time=1.5 ms\n", .delay = 2ms});
    }

    std::vector<std::string> argumentsOf(const std::string& tool, std::size_t index) const {
        std::vector<std::string> list;
        for (const auto& call : processes.calls) {
            if (call.executable == tool) list.push_back(call.arguments.at(index));
        }
        return list;
    }

    FakeClock clock;
    TestLoop loop{clock};
    FakeProcessRunner processes{clock};
    std::vector<Ipv4Interface> interfaces{interfaceWith(0xFFFFFFF8, "en0", 0xC0A80102)};
    IpScanner scanner{
        {loop.executor(), processes, clock, SystemRoot(), [this] { return interfaces; }}};

    IpScannerTest() {
        processes.answerAlways("/sbin/ping", {.end = Exited{2}, .delay = 350ms});
        processes.answerAlways("/usr/sbin/arp", {.standardOutput = "? at (incomplete) on en0"});
        processes.answerAlways("/usr/bin/dscacheutil", {});
    }
};

TEST_F(IpScannerTest, describesTheNetworkAndItsHostsInOrder) {
    hostAnswers(5);
    hostAnswers(1);
    processes.answer("/usr/sbin/arp", {"-n", ip(1)},
                     {.standardOutput = "? (192.168.1.1) at a:0:0:0:0:1 on en0", .delay = 9ms});
    processes.answer("/usr/bin/dscacheutil", {"-q", "host", "-a", "ip_address", ip(1)},
                     {.standardOutput = "name: router.local\nip_address: 192.168.1.1\n"});
    const Json result = scan();
    EXPECT_EQ(result,
              (Json{{"scanner", "orv-viewer-macos"},
                    {"started_at", "2026-03-01T09:15:02Z"},
                    {"completed_at", "2026-03-01T09:15:02Z"},
                    {"duration_ms", 350},
                    {"network_count", 1},
                    {"host_count", 2},
                    {"networks",
                     {{{"interface", "en0"},
                       {"local_ip", "192.168.1.2"},
                       {"network", "192.168.1.0"},
                       {"cidr", "192.168.1.0/29"},
                       {"scanned_hosts", 6},
                       {"hosts",
                        {{{"ip", "192.168.1.1"},
                          {"status", "up"},
                          {"latency_ms", 1.5},
                          {"mac", "0a:00:00:00:00:01"},
                          {"hostname", "router.local"}},
                         {{"ip", "192.168.1.5"}, {"status", "up"}, {"latency_ms", 1.5}}}}}}}}));
}

TEST_F(IpScannerTest, probesEveryAddressWithTheToolsArguments) {
    scan();
    EXPECT_THAT(argumentsOf("/sbin/ping", 4),
                ElementsAre(ip(1), ip(2), ip(3), ip(4), ip(5), ip(6)));
    EXPECT_THAT(argumentsOf("/sbin/ping", 0), Each("-c"));
    EXPECT_THAT(argumentsOf("/sbin/ping", 1), Each("1"));
    EXPECT_THAT(argumentsOf("/sbin/ping", 2), Each("-W"));
    EXPECT_THAT(argumentsOf("/usr/sbin/arp", 0), IsEmpty()) << "silent hosts are not looked up";
}

TEST_F(IpScannerTest, clampsTheTimeout) {
    const std::pair<Json, const char*> rows[] = {{5, "100"},     {10000, "2000"}, {nullptr, "350"},
                                                 {"200", "200"}, {"x", "350"},    {true, "350"},
                                                 {350.5, "350"}};
    for (const auto& [given, expected] : rows) {
        processes.calls.clear();
        scan({{"timeout_ms", given}});
        EXPECT_THAT(argumentsOf("/sbin/ping", 3), Each(expected)) << given;
    }
}

TEST_F(IpScannerTest, valuesOfOtherKindsAreTheDefaults) {
    hostAnswers(1);
    const Json strange = {{"timeout_ms", Json::array()},
                          {"max_prefix_length", Json::object()},
                          {"resolve_hostnames", Json::array({false})}};
    for (const Json& payload : {strange, Json("text"), Json(nullptr), Json(7)}) {
        processes.calls.clear();
        EXPECT_EQ(scan(payload).at("networks")[0].at("cidr"), "192.168.1.0/29") << payload;
        EXPECT_THAT(argumentsOf("/sbin/ping", 3), Each("350")) << payload;
        EXPECT_THAT(argumentsOf("/usr/bin/dscacheutil", 4), ElementsAre(ip(1))) << payload;
    }
}

TEST_F(IpScannerTest, clampsTheWidth) {
    interfaces = {interfaceWith(0xFFFF0000)};
    EXPECT_EQ(scan({{"max_prefix_length", 16}}).at("networks")[0].at("cidr"), "192.168.1.0/24");
    EXPECT_EQ(scan({{"max_prefix_length", 31}}).at("networks")[0].at("cidr"), "192.168.1.8/30");
    EXPECT_EQ(scan({{"max_prefix_length", "26"}}).at("networks")[0].at("scanned_hosts"), 62);
}

TEST_F(IpScannerTest, namesAreLookedUpOnlyWhenWanted) {
    hostAnswers(1);
    scan({{"resolve_hostnames", "no"}});
    EXPECT_THAT(argumentsOf("/usr/bin/dscacheutil", 0), IsEmpty());
    EXPECT_THAT(argumentsOf("/usr/sbin/arp", 1), ElementsAre(ip(1)));
    scan({{"resolve_hostnames", 5}});
    EXPECT_THAT(argumentsOf("/usr/bin/dscacheutil", 4), ElementsAre(ip(1)));
}

TEST_F(IpScannerTest, anAnswerCountsWhateverPingPrinted) {
    processes.answer("/sbin/ping", {"-c", "1", "-W", "350", ip(3)}, {.standardOutput = "\xff\xfe"});
    const Json result = scan();
    EXPECT_EQ(result.at("networks")[0].at("hosts"),
              (Json::array({{{"ip", ip(3)}, {"status", "up"}}})));
}

TEST_F(IpScannerTest, aPingThatFailsIsSilenceWhateverItPrinted) {
    processes.answerAlways("/sbin/ping",
                           {.standardOutput = "36 bytes from 10.0.0.1: Time to live exceeded\n"
                                              "64 bytes: icmp_seq=0 ttl=64 time=1.5 ms\n",
                            .end = Exited{2}});
    EXPECT_EQ(scan().at("host_count"), 0);
}

TEST_F(IpScannerTest, aPingThatHangsIsASilentHost) {
    hostAnswers(3);
    processes.answer("/sbin/ping", {"-c", "1", "-W", "350", ip(2)}, {.delay = 24h});
    const Json result = scan();
    EXPECT_EQ(result.at("duration_ms"), 5000);
    EXPECT_EQ(result.at("networks")[0].at("hosts")[0].at("ip"), ip(3));
    EXPECT_EQ(result.at("host_count"), 1);
}

TEST_F(IpScannerTest, withoutNetworksOrToolsTheResultIsEmpty) {
    processes.failToLaunch("/sbin/ping", "No such file or directory");
    EXPECT_EQ(scan().at("host_count"), 0);
    EXPECT_EQ(scan().at("networks")[0].at("hosts"), Json::array());
    EXPECT_EQ(scan().at("duration_ms"), 0) << "what is missing is not waited for";
    interfaces.clear();
    const Json result = scan();
    EXPECT_EQ(result.at("networks"), Json::array());
    EXPECT_EQ(result.at("network_count"), 0);
}

TEST_F(IpScannerTest, networksAreScannedOneAfterTheOther) {
    interfaces.push_back(interfaceWith(0xFFFFFFFC, "en1", 0x0A000001));
    const Json result = scan();
    EXPECT_EQ(result.at("network_count"), 2);
    EXPECT_EQ(result.at("networks")[1].at("interface"), "en1");
    EXPECT_EQ(result.at("duration_ms"), 700);
}

TEST_F(IpScannerTest, atMostSoManyProbesRunAtOnce) {
    interfaces = {interfaceWith(0xFFFFFF00)};
    IpScanner narrow{
        {loop.executor(), processes, clock, SystemRoot(), [this] { return interfaces; }, 100}};
    const Json result = loop.run(narrow.scan(Json::object()));
    EXPECT_EQ(processes.mostAtOnce, 100u);
    EXPECT_EQ(processes.calls.size(), 254u);
    EXPECT_EQ(result.at("duration_ms"), 3 * 350);
}

TEST_F(IpScannerTest, aFullProcessTableOnlySlowsTheScanDown) {
    interfaces = {interfaceWith(0xFFFFFF00)};
    processes.room = 100;
    for (const int last : {7, 133, 254})
        hostAnswers(last);
    const Json result = scan();
    EXPECT_EQ(result.at("host_count"), 3);
    EXPECT_LE(processes.mostAtOnce, 100u);
    EXPECT_LT(result.at("duration_ms"), 2000);
}

TEST_F(IpScannerTest, aHostIsListedEvenWhenTheOtherToolsFail) {
    hostAnswers(1);
    processes.failToLaunch("/usr/sbin/arp", "No such file or directory");
    processes.answerAlways("/usr/bin/dscacheutil", {.end = Signalled{9}});
    EXPECT_EQ(scan().at("networks")[0].at("hosts"),
              (Json::array({{{"ip", ip(1)}, {"status", "up"}, {"latency_ms", 1.5}}})));
}

TEST_F(IpScannerTest, aToolThatPrintsTooMuchTellsNothing) {
    hostAnswers(1);
    processes.answerAlways(
        "/usr/sbin/arp", {.standardOutput = std::string(1 << 20, 'x') + "? at 1:2:3:4:5:6 on en0"});
    EXPECT_FALSE(scan().at("networks")[0].at("hosts")[0].contains("mac"));
}

TEST_F(IpScannerTest, eachToolHasFiveSeconds) {
    hostAnswers(1);
    scan();
    for (const auto& call : processes.calls)
        EXPECT_EQ(call.timeout, 5s) << call.executable;
}

TEST_F(IpScannerTest, aHostWhoseLookUpsHangIsListedAfterTheirTime) {
    hostAnswers(1);
    processes.answerAlways("/usr/sbin/arp", {.delay = 24h});
    processes.answerAlways("/usr/bin/dscacheutil", {.delay = 24h});
    const Json result = scan();
    EXPECT_EQ(result.at("duration_ms"), 10'002);
    EXPECT_EQ(result.at("host_count"), 1);
}

TEST_F(IpScannerTest, aNetworkIsDoneWithinAMinuteWithWhatIsKnown) {
    IpScanner slow{
        {loop.executor(), processes, clock, SystemRoot(), [this] { return interfaces; }, 1}};
    processes.answerAlways("/usr/sbin/arp", {.delay = 24h});
    processes.answerAlways("/usr/bin/dscacheutil", {.delay = 24h});
    interfaces = {interfaceWith(0xFFFFFF00)};
    for (int last = 1; last <= 254; ++last)
        hostAnswers(last);

    const Json result = loop.run(slow.scan(Json::object()));

    EXPECT_EQ(result.at("duration_ms"), 60'000);
    EXPECT_EQ(result.at("started_at"), "2026-03-01T09:15:02Z");
    EXPECT_EQ(result.at("completed_at"), "2026-03-01T09:16:02Z");
    EXPECT_EQ(result.at("host_count"), 6) << "ten seconds each";
    EXPECT_EQ(processes.running, 0u);
}

TEST_F(IpScannerTest, cancellingTheScanEndsItsProbes) {
    processes.answerAlways("/sbin/ping", {.delay = 24h});
    BackgroundTask task(loop, [](IpScanner& running) -> Task<void> {
        co_await running.scan(Json::object());
    }(scanner));
    loop.runFor(1s);
    EXPECT_EQ(processes.running, 6u);
    task.cancel();
    loop.runReady();
    EXPECT_TRUE(task.isDone);
    EXPECT_EQ(processes.running, 0u);
}

}  // namespace
}  // namespace orv
