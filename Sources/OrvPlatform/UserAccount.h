#pragma once

#include <string>

namespace orv {

/// Whoever runs this process; what the system does not know is empty.
struct UserAccount {
    std::string name;      // to log in with
    std::string fullName;  // as people write it
    std::string home;
};

UserAccount currentUserAccount();

}  // namespace orv
