#include "OrvPlatform/UserAccount.h"

#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace orv {

UserAccount currentUserAccount() {
    std::vector<char> buffer(16 << 10);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr) {
        return {};
    }
    // Behind the first comma are rooms and telephone numbers.
    const std::string fullName = entry.pw_gecos == nullptr ? "" : entry.pw_gecos;
    return {entry.pw_name, fullName.substr(0, fullName.find(',')), entry.pw_dir};
}

}  // namespace orv
