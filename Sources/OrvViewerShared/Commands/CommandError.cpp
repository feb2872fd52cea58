#include "OrvViewerShared/Commands/CommandError.h"

#include <utility>

namespace orv {

CommandError::CommandError(std::string domain, int code, const std::string& description)
    : std::runtime_error(description), errorDomain(std::move(domain)), errorCode(code) {
}

}  // namespace orv
