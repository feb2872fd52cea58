#include <sys/sysctl.h>
#include <unistd.h>

#include <IOKit/IOKitLib.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include "OrvPlatform/CoreFoundationSupport_macos.h"
#include "OrvPlatform/HostFacts.h"

namespace orv {

namespace {

class IoObject {
public:
    explicit IoObject(io_object_t object) : object(object) {}
    ~IoObject() {
        if (object != IO_OBJECT_NULL) IOObjectRelease(object);
    }
    IoObject(const IoObject&) = delete;
    IoObject& operator=(const IoObject&) = delete;

    io_object_t get() const { return object; }

private:
    io_object_t object;
};

/// A property of the machine itself in the I/O registry.
std::optional<std::string> platformValue(CFStringRef key) {
    const IoObject expert(IOServiceGetMatchingService(kIOMainPortDefault,
                                                      IOServiceMatching("IOPlatformExpertDevice")));
    if (expert.get() == IO_OBJECT_NULL) return std::nullopt;
    const CfOwned<CFTypeRef> value(
        IORegistryEntryCreateCFProperty(expert.get(), key, kCFAllocatorDefault, 0));
    const std::optional<std::string> text = utf8TextIfString(value.get());
    return text && !text->empty() ? text : std::nullopt;
}

template <typename Number>
std::optional<Number> sysctlNumber(const char* name) {
    Number value = 0;
    std::size_t size = sizeof value;
    if (::sysctlbyname(name, &value, &size, nullptr, 0) != 0 || size != sizeof value) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> sysctlText(const char* name) {
    char value[256] = {};
    std::size_t size = sizeof value - 1;
    if (::sysctlbyname(name, value, &size, nullptr, 0) != 0) return std::nullopt;
    return std::string(value);
}

unsigned atLeastOne(std::optional<int> count) {
    return count && *count > 0 ? static_cast<unsigned>(*count) : 1U;
}

}  // namespace

std::string SystemHostFacts::hostName() const {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return "";
    return name;
}

std::string SystemHostFacts::computerName() const {
    const CfOwned<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
    const std::optional<std::string> text = utf8TextIfString(name.get());
    return text && !text->empty() ? *text : hostName();
}

std::optional<std::string> SystemHostFacts::serialNumber() const {
    return platformValue(CFSTR("IOPlatformSerialNumber"));
}

std::optional<std::string> SystemHostFacts::platformUuid() const {
    return platformValue(CFSTR("IOPlatformUUID"));
}

std::optional<ConsoleUser> SystemHostFacts::consoleUser() const {
    uid_t uid = 0;
    const CfOwned<CFStringRef> name(SCDynamicStoreCopyConsoleUser(nullptr, &uid, nullptr));
    const std::optional<std::string> text = utf8TextIfString(name.get());
    if (!text || text->empty() || *text == "root" || *text == "loginwindow" || uid == 0) {
        return std::nullopt;
    }
    return ConsoleUser{*text, uid};
}

std::string SystemHostFacts::systemVersion() const {
    return threePartVersion(sysctlText("kern.osproductversion").value_or(""));
}

unsigned SystemHostFacts::processorCount() const {
    return atLeastOne(sysctlNumber<int>("hw.ncpu"));
}

unsigned SystemHostFacts::activeProcessorCount() const {
    return atLeastOne(sysctlNumber<int>("hw.activecpu"));
}

std::uint64_t SystemHostFacts::physicalMemoryBytes() const {
    return sysctlNumber<std::uint64_t>("hw.memsize").value_or(0);
}

}  // namespace orv
