#pragma once

#include <optional>
#include <string>

namespace orv {

/// Who this device is, as far as it is known.
struct AgentIdentity {
    std::string deviceUid;
    std::optional<std::string> supportId;
    std::optional<std::string> hostname;
    std::optional<std::string> loggedInUser;

    bool operator==(const AgentIdentity&) const = default;
};

}  // namespace orv
