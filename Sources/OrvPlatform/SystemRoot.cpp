#include "OrvPlatform/SystemRoot.h"

#include <utility>

namespace orv {

SystemRoot::SystemRoot(std::string folder) : prefix(std::move(folder)) {
    while (!prefix.empty() && prefix.back() == '/')
        prefix.pop_back();
}

std::string SystemRoot::locate(std::string_view absolutePath) const {
    if (!absolutePath.starts_with('/')) return std::string(absolutePath);
    return prefix + std::string(absolutePath);
}

std::string SystemRoot::shown(std::string_view location) const {
    if (prefix.empty() || !location.starts_with(prefix)) return std::string(location);
    const std::string_view rest = location.substr(prefix.size());
    if (rest.empty()) return "/";
    return rest.front() == '/' ? std::string(rest) : std::string(location);
}

}  // namespace orv
