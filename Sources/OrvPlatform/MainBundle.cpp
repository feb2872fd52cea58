#include "OrvPlatform/MainBundle.h"

#include <filesystem>
#include <system_error>

namespace orv {

std::string currentDirectory() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::current_path(error);
    return error ? std::string() : path.string();
}

}  // namespace orv
