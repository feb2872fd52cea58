#include <filesystem>
#include <system_error>

#include "OrvPlatform/MainBundle.h"

namespace orv {

std::string mainBundlePath() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : program.parent_path().string();
}

}  // namespace orv
