#pragma once

#include "WsparoCompanion/Language.h"

namespace orv::companion {

/// What "wsparo --help" prints, with a line feed at the end.
const char* helpText(Language language);

}  // namespace orv::companion
