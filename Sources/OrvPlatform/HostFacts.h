#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "OrvPlatform/SystemRoot.h"

namespace orv {

struct ConsoleUser {
    std::string name;
    uid_t uid = 0;
};

/// What the operating system itself says about this machine. Unknown is nothing, never a sentinel.
/// Quick: no tool is run.
class HostFacts {
public:
    virtual ~HostFacts() = default;

    virtual std::string hostName() const = 0;

    /// The name that its owner gave the machine; the host name when there is none.
    virtual std::string computerName() const = 0;

    virtual std::optional<std::string> serialNumber() const = 0;
    virtual std::optional<std::string> platformUuid() const = 0;

    /// Who sits at the screen; nothing when nobody is logged in (the login window, or root, which
    /// owns the console then).
    virtual std::optional<ConsoleUser> consoleUser() const = 0;

    /// Numeric addresses of all interfaces, in the interface list's order, without those that
    /// begin with "127."; IPv6 addresses without a scope.
    virtual std::vector<std::string> ipAddresses() const = 0;

    /// "major.minor.patch" of the running system; a part that is unknown is 0.
    virtual std::string systemVersion() const = 0;

    virtual unsigned processorCount() const = 0;
    virtual unsigned activeProcessorCount() const = 0;
    virtual std::uint64_t physicalMemoryBytes() const = 0;

    /// The load average over the last minute.
    virtual std::optional<double> oneMinuteLoad() const = 0;
};

/// The machine we run on. macOS asks the system, whatever the root. Linux reads what has a path
/// below the root, so that a relocated root can stand for another machine: the DMI serial number
/// and UUID (else the machine id), the pretty host name, the owner of the console, the Mac's
/// version file; and, only when relocated, the host name.
class SystemHostFacts final : public HostFacts {
public:
    explicit SystemHostFacts(SystemRoot root = {});

    std::string hostName() const override;
    std::string computerName() const override;
    std::optional<std::string> serialNumber() const override;
    std::optional<std::string> platformUuid() const override;
    std::optional<ConsoleUser> consoleUser() const override;
    std::vector<std::string> ipAddresses() const override;
    std::string systemVersion() const override;
    unsigned processorCount() const override;
    unsigned activeProcessorCount() const override;
    std::uint64_t physicalMemoryBytes() const override;
    std::optional<double> oneMinuteLoad() const override;

private:
    SystemRoot root;
};

/// "14.5" and "14.5.0-23-generic" as "14.5.0": the first three numbers of a version text.
std::string threePartVersion(std::string_view text);

}  // namespace orv
