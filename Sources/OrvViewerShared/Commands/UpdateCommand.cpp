#include "OrvViewerShared/Commands/UpdateCommand.h"

#include <optional>

#include "OrvViewerShared/MacViewerBuildInfo.h"

namespace orv {

Json UpdateCommand::pickedUpResult() {
    return {{"platform", "macos"}, {"current_version", MacViewerBuildInfo::version}};
}

Task<Json> UpdateCommand::updateClient() {
    return check.checkForClientUpdate("command", std::nullopt);
}

}  // namespace orv
