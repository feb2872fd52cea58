#pragma once

#include <string>

namespace orv {

/// Where a kept file lies, named below "Tests/": "Golden/x", "Fixtures/y".
std::string testFile(const std::string& name);

}  // namespace orv
