#include "Support/TestFiles.h"

namespace orv {

std::string testFilePath(const std::string& name) {
    return std::string(ORV_TEST_DIRECTORY) + "/" + name;
}

}  // namespace orv
