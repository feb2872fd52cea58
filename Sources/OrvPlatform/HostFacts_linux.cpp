#include <algorithm>
#include <climits>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/PropertyList.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

constexpr std::uint64_t smallFileLimitBytes = 1 << 20;

/// Nothing when the file cannot be read or holds blanks only.
std::optional<std::string> trimmedContent(const std::string& path) {
    try {
        std::string content = trimmed(readFile(path, smallFileLimitBytes));
        if (content.empty()) return std::nullopt;
        return content;
    } catch (const FileError&) {
        return std::nullopt;
    }
}

/// A value of a file of NAME="value" lines.
std::optional<std::string> shellVariable(const std::string& path, std::string_view name) {
    const std::string content = trimmedContent(path).value_or("");
    for (std::string_view line : linesOf(content)) {
        if (!line.starts_with(name) || !line.substr(name.size()).starts_with('=')) continue;
        std::string_view value = line.substr(name.size() + 1);
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        if (!value.empty()) return std::string(value);
    }
    return std::nullopt;
}

/// The first and third of the colon-separated fields: name and number of a user.
std::optional<std::string> userNameIn(const std::string& passwd, uid_t uid) {
    for (const std::string_view line : linesOf(passwd)) {
        const std::size_t nameEnd = line.find(':');
        if (nameEnd == std::string_view::npos) continue;
        const std::size_t passwordEnd = line.find(':', nameEnd + 1);
        if (passwordEnd == std::string_view::npos) continue;
        const std::string_view rest = line.substr(passwordEnd + 1);
        if (rest.substr(0, rest.find(':')) == std::to_string(uid)) {
            return std::string(line.substr(0, nameEnd));
        }
    }
    return std::nullopt;
}

std::optional<std::string> systemUserName(uid_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    std::string buffer(16384, '\0');
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return std::nullopt;
    }
    return std::string(found->pw_name);
}

std::optional<std::string> productVersion(const std::string& path) {
    try {
        return textIfPresent(parsePropertyList(readFile(path, smallFileLimitBytes)),
                             "ProductVersion");
    } catch (const FileError&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

unsigned atLeastOne(long count) {
    return static_cast<unsigned>(std::max(count, 1L));
}

}  // namespace

std::string SystemHostFacts::hostName() const {
    if (root.isRelocated()) {
        if (auto name = trimmedContent(root.locate("/etc/hostname"))) return *name;
    }
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return "";
    return name;
}

std::string SystemHostFacts::computerName() const {
    const auto name = shellVariable(root.locate("/etc/machine-info"), "PRETTY_HOSTNAME");
    return name ? *name : hostName();
}

std::optional<std::string> SystemHostFacts::serialNumber() const {
    return trimmedContent(root.locate("/sys/class/dmi/id/product_serial"));
}

std::optional<std::string> SystemHostFacts::platformUuid() const {
    const auto uuid = trimmedContent(root.locate("/sys/class/dmi/id/product_uuid"));
    return uuid ? uuid : trimmedContent(root.locate("/etc/machine-id"));
}

std::optional<ConsoleUser> SystemHostFacts::consoleUser() const {
    struct stat console{};
    if (::stat(root.locate("/dev/console").c_str(), &console) != 0 || console.st_uid == 0) {
        return std::nullopt;
    }
    const auto users = trimmedContent(root.locate("/etc/passwd"));
    const auto name = users ? userNameIn(*users, console.st_uid) : systemUserName(console.st_uid);
    if (!name || name->empty() || *name == "root" || *name == "loginwindow") return std::nullopt;
    return ConsoleUser{*name, console.st_uid};
}

std::string SystemHostFacts::systemVersion() const {
    const auto version =
        productVersion(root.locate("/System/Library/CoreServices/SystemVersion.plist"));
    if (version) return threePartVersion(*version);
    utsname system{};
    return ::uname(&system) == 0 ? threePartVersion(system.release) : "0.0.0";
}

unsigned SystemHostFacts::processorCount() const {
    return atLeastOne(::sysconf(_SC_NPROCESSORS_CONF));
}

unsigned SystemHostFacts::activeProcessorCount() const {
    return atLeastOne(::sysconf(_SC_NPROCESSORS_ONLN));
}

std::uint64_t SystemHostFacts::physicalMemoryBytes() const {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageBytes = ::sysconf(_SC_PAGESIZE);
    if (pages < 0 || pageBytes < 0) return 0;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageBytes);
}

}  // namespace orv
