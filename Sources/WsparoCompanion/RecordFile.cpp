#include "WsparoCompanion/RecordFile.h"

#include <cerrno>

namespace orv::companion {

FileCondition conditionOf(const FileError& error) {
    switch (error.systemError()) {
        case ENOENT:
        case ENOTDIR: return FileCondition::missing;
        case EACCES:
        case EPERM: return FileCondition::forbidden;
        default: return FileCondition::broken;
    }
}

}  // namespace orv::companion
