#include <algorithm>
#include <array>
#include <set>
#include <sys/statvfs.h>
#include <utility>

#include "OrvPlatform/File.h"
#include "OrvPlatform/MountTable.h"
#include "OrvPlatform/Volumes.h"

namespace orv {

namespace {

constexpr const char* mountTable = "/proc/self/mounts";

/// File systems that live in the kernel's memory or show others' files once more. A container's
/// root is such a one, but all it has.
bool isPseudo(const MountEntry& entry) {
    constexpr std::array<std::string_view, 27> names = {
        "autofs",   "binfmt_misc", "bpf",      "cgroup",  "cgroup2",    "configfs",   "debugfs",
        "devpts",   "devtmpfs",    "efivarfs", "fusectl", "hugetlbfs",  "mqueue",     "nsfs",
        "overlay",  "proc",        "pstore",   "ramfs",   "rpc_pipefs", "securityfs", "selinuxfs",
        "squashfs", "sysfs",       "tmpfs",    "tracefs", "fuse.lxcfs", "fuse.portal"};
    if (entry.mountPoint == "/" && entry.fileSystem == "overlay") return false;
    return std::find(names.begin(), names.end(), entry.fileSystem) != names.end();
}

struct Mounts {
    std::string table;
    bool isOfRoot = false;
};

Mounts readMounts(const SystemRoot& root) {
    constexpr std::uint64_t limitBytes = 4 << 20;
    const std::string ofRoot = root.locate(mountTable);
    const bool isOfRoot = fileExists(ofRoot);
    try {
        return {readFile(isOfRoot ? ofRoot : mountTable, limitBytes), isOfRoot};
    } catch (const FileError&) {
        return {};
    }
}

}  // namespace

std::vector<Volume> mountedVolumes(const SystemRoot& root) {
    const Mounts mounts = readMounts(root);
    std::vector<Volume> volumes;
    std::set<std::string> devices;
    for (MountEntry& entry : parseMounts(mounts.table)) {
        if (isPseudo(entry)) continue;
        const std::string location =
            mounts.isOfRoot ? root.locate(entry.mountPoint) : entry.mountPoint;
        const std::optional<VolumeCapacity> capacity = volumeCapacity(location);
        if (!capacity || capacity->totalBytes == 0) continue;
        if (!devices.insert(entry.device).second) continue;
        std::string name = lastPathComponent(entry.mountPoint);
        volumes.push_back({name.empty() ? entry.mountPoint : std::move(name),
                           std::move(entry.mountPoint), capacity->totalBytes,
                           capacity->availableBytes, std::move(entry.fileSystem)});
    }
    return volumes;
}

// A Linux file system is known by its mount point alone.
std::optional<std::string> volumeLocalizedName(const std::string&) {
    return std::nullopt;
}

std::optional<VolumeCapacity> volumeCapacity(const std::string& path) {
    struct statvfs status{};
    if (::statvfs(path.c_str(), &status) != 0) return std::nullopt;
    const std::uint64_t unit = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
    return VolumeCapacity{unit * status.f_blocks, unit * status.f_bavail};
}

}  // namespace orv
