#pragma once

#include <string>
#include <utility>

#include "OrvPlatform/ProcessRunner.h"

namespace orv {

/// Has /bin/sh run a text.
inline ProcessRequest shellRequest(std::string text) {
    ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", std::move(text)};
    return request;
}

}  // namespace orv
