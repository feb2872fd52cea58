#include <cstdint>
#include <filesystem>
#include <mach-o/dyld.h>
#include <system_error>
#include <vector>

#include "OrvPlatform/MainBundle.h"

namespace orv {

namespace {

std::filesystem::path programPath() {
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::vector<char> buffer(size + 1);
    if (_NSGetExecutablePath(buffer.data(), &size) != 0) return {};
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(buffer.data(), error);
    return error ? std::filesystem::path(buffer.data()) : resolved;
}

}  // namespace

std::string mainBundlePath() {
    const std::filesystem::path folder = programPath().parent_path();
    // Name.app/Contents/MacOS/Name
    const std::filesystem::path contents = folder.parent_path();
    if (folder.filename() == "MacOS" && contents.filename() == "Contents") {
        return contents.parent_path().string();
    }
    return folder.string();
}

}  // namespace orv
