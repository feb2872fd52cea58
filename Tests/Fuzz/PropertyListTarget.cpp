#include <stdexcept>

#include "Fuzz/Target.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/PropertyList.h"

namespace orv::fuzz {

void propertyList(std::string_view bytes) {
    Json value;
    try {
        value = parsePropertyList(bytes);
    } catch (const DecodingError&) {
        return;
    }
    demand(!compactJson(value).empty(), "a list can be told as JSON");
    try {
        (void)parsePropertyList(xmlPropertyList(value));
    } catch (const std::invalid_argument&) {
        return;  // it holds what XML cannot
    }
}

}  // namespace orv::fuzz
