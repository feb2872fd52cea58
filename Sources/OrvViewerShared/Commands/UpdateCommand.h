#pragma once

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Update/UpdateCheck.h"

namespace orv {

/// A consultant asks for an update check.
class UpdateCommand {
public:
    explicit UpdateCommand(UpdateCheck& usedCheck) : check(usedCheck) {}

    /// What the server is told when the command is picked up: an update replaces the daemon.
    static Json pickedUpResult();

    /// Returns and throws what the check does.
    Task<Json> updateClient();

private:
    UpdateCheck& check;
};

}  // namespace orv
