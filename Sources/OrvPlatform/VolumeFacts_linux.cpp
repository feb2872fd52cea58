#include "OrvPlatform/VolumeFacts.h"

namespace orv {

// A Linux file system is known by its mount point alone.
std::optional<std::string> volumeLocalizedName(const std::string&) {
    return std::nullopt;
}

}  // namespace orv
