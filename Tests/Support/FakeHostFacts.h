#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/HostFacts.h"

namespace orv {

/// A portable Mac with one user; every fact can be changed.
class FakeHostFacts final : public HostFacts {
public:
    std::string hostName() const override { return host; }
    std::string computerName() const override { return computer; }
    std::optional<std::string> serialNumber() const override { return serial; }
    std::optional<std::string> platformUuid() const override { return uuid; }
    std::optional<ConsoleUser> consoleUser() const override { return user; }
    std::vector<std::string> ipAddresses() const override { return addresses; }
    std::string systemVersion() const override { return version; }
    unsigned processorCount() const override { return processors; }
    unsigned activeProcessorCount() const override { return activeProcessors; }
    std::uint64_t physicalMemoryBytes() const override { return memoryBytes; }
    std::optional<double> oneMinuteLoad() const override { return load; }

    std::string host = "biuro-3.local";
    std::string computer = "Księgowość 3";
    std::optional<std::string> serial = "C02SAMPLE1";
    std::optional<std::string> uuid = "5A11E1B0-0000-4000-8000-00000000000A";
    std::optional<ConsoleUser> user = ConsoleUser{"anna", 501};
    std::vector<std::string> addresses = {"192.0.2.17", "fe80::1c2d"};
    std::string version = "15.5.0";
    unsigned processors = 10;
    unsigned activeProcessors = 8;
    std::uint64_t memoryBytes = 17179869184;
    std::optional<double> load = 2.0;
};

}  // namespace orv
