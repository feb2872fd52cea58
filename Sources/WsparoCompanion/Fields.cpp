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
        text += label;
        text += ':';
        text.append(width - characterCount(label) + 2, ' ');
        text += value;
    }
    return text;
}

}  // namespace orv::companion
