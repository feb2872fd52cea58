#pragma once

#include <string>

namespace orv {

/// Where a file below Tests/ lies, as "Golden/uninstall-job.sh".
std::string testFilePath(const std::string& name);

}  // namespace orv
