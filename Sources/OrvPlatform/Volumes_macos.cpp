#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <sys/attr.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <unistd.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Volumes.h"

namespace orv {

namespace {

/// The system's own volumes (recovery, swap, the data half of the start volume) are not shown to
/// people either; nor are mounts for development (devfs) and those made on demand.
bool isForPeople(const struct statfs& mount) {
    const auto flags = static_cast<std::uint32_t>(mount.f_flags);
    return (flags & static_cast<std::uint32_t>(MNT_DONTBROWSE)) == 0 && mount.f_blocks > 0;
}

/// What the system already knows: a network volume that does not answer is not waited for.
std::vector<struct statfs> mountTable() {
    const int count = ::getfsstat(nullptr, 0, MNT_NOWAIT);
    if (count <= 0) return {};
    std::vector<struct statfs> table(static_cast<std::size_t>(count) + 8);
    const int filled =
        ::getfsstat(table.data(), static_cast<int>(table.size() * sizeof table[0]), MNT_NOWAIT);
    table.resize(filled > 0 ? static_cast<std::size_t>(filled) : 0);
    return table;
}

VolumeCapacity capacityOf(const struct statfs& mount) {
    const std::uint64_t blockSize = mount.f_bsize;
    return {mount.f_blocks * blockSize, mount.f_bavail * blockSize};
}

std::string nameOf(const std::string& mountPoint) {
    if (auto name = volumeLocalizedName(mountPoint)) return *name;
    std::string last = lastPathComponent(mountPoint);
    return last.empty() ? mountPoint : last;
}

}  // namespace

std::vector<Volume> mountedVolumes(const SystemRoot&) {
    std::vector<Volume> volumes;
    std::set<std::string> devices;
    for (const struct statfs& mount : mountTable()) {
        if (!isForPeople(mount) || !devices.insert(mount.f_mntfromname).second) continue;
        const VolumeCapacity capacity = capacityOf(mount);
        volumes.push_back({nameOf(mount.f_mntonname), mount.f_mntonname, capacity.totalBytes,
                           capacity.availableBytes, mount.f_fstypename});
    }
    return volumes;
}

std::optional<std::string> volumeLocalizedName(const std::string& mountPoint) {
    struct [[gnu::packed, gnu::aligned(4)]] Answer {
        std::uint32_t length;
        attrreference_t name;
        std::array<char, 256> text;
    };
    attrlist wanted{};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.volattr = ATTR_VOL_INFO | ATTR_VOL_NAME;
    Answer answer{};
    if (getattrlist(mountPoint.c_str(), &wanted, &answer, sizeof(answer), 0) != 0) {
        return std::nullopt;
    }
    const char* name = reinterpret_cast<const char*>(&answer.name) + answer.name.attr_dataoffset;
    std::string text(name, strnlen(name, answer.name.attr_length));
    if (text.empty()) return std::nullopt;
    return text;
}

// Not statvfs, whose 32-bit counts end at 16 TiB.
std::optional<VolumeCapacity> volumeCapacity(const std::string& path) {
    struct statfs status{};
    if (::statfs(path.c_str(), &status) != 0) return std::nullopt;
    return capacityOf(status);
}

}  // namespace orv
