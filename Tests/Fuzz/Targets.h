#pragma once

#include <array>
#include <string_view>

#include "Fuzz/Target.h"

namespace orv::fuzz {

struct NamedTarget {
    std::string_view name;  // also of its folder in the corpus
    Target run;
};

constexpr std::array<NamedTarget, 9> targets{{
    {"base64", base64},
    {"chatMessage", chatMessage},
    {"controlMessage", controlMessage},
    {"json", json},
    {"propertyList", propertyList},
    {"records", records},
    {"textLimiter", textLimiter},
    {"toolOutputs", toolOutputs},
    {"url", url},
}};

}  // namespace orv::fuzz
