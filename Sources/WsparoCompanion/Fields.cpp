#include "WsparoCompanion/Fields.h"

#include <algorithm>

#include "OrvPlatform/Text.h"

namespace orv::companion {

std::string Fields::text() const {
    std::size_t width = 0;
    for (const auto& [label, value] : fields)
        width = std::max(width, characterCount(label));
    std::string text;
    for (const auto& [label, value] : fields) {
        if (!text.empty()) text += '\n';
        text += label + ":" + std::string(width - characterCount(label) + 2, ' ') + value;
    }
    return text;
}

}  // namespace orv::companion
