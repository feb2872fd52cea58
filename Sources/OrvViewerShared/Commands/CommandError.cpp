#include "OrvViewerShared/Commands/CommandError.h"

#include <utility>

namespace orv {

CommandError::CommandError(std::string domain, int code, const std::string& description)
    : std::runtime_error(description), errorDomain(std::move(domain)), errorCode(code) {
}

CommandError fileTransferError(int code, const std::string& description) {
    return {"OrvViewerFileTransfer", code, description};
}

}  // namespace orv
