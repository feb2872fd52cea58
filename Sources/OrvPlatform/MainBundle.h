#pragma once

#include <string>

namespace orv {

/// The folder of the application bundle that this program belongs to; where there is none, the
/// folder of the program itself. Empty when the system does not say.
std::string mainBundlePath();

/// Empty when it is gone.
std::string currentDirectory();

}  // namespace orv
