#include "Support/TestDirectory.h"

namespace orv {

std::string testFile(const std::string& name) {
    return std::string(ORV_TEST_DIRECTORY) + "/" + name;
}

}  // namespace orv
