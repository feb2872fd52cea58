#include "OrvPlatform/JsonTreeBuilder.h"

#include <utility>

#include <fmt/format.h>

namespace orv {

namespace {

constexpr int maximumDepth = 512;

/// Of an array directly in the outermost object, while its items are read.
constexpr int depthOfItemArray = 2;

}  // namespace

bool JsonTreeBuilder::key(const std::string& name) {
    if (hasEnoughItems) return true;
    if (depth == 1) outermostKey = name;
    member = &containers.back()->get_ref<Json::object_t&>()[name];
    return true;
}

bool JsonTreeBuilder::parse_error(std::size_t byte, const std::string&,
                                  const Json::exception& error) {
    if (dynamic_cast<const Json::out_of_range*>(&error) != nullptr) {
        throw DecodingError("A number in the JSON is too large.");
    }
    // The library's own message quotes what it read, which may be a credential.
    throw DecodingError(fmt::format("Not valid JSON at byte {}.", byte));
}

bool JsonTreeBuilder::open(Json::value_t type) {
    if (++depth > maximumDepth) {
        throw DecodingError(fmt::format("JSON nested deeper than {} levels.", maximumDepth));
    }
    if (!hasEnoughItems) containers.push_back(&place(type));
    return true;
}

bool JsonTreeBuilder::close() {
    --depth;
    if (depth < depthOfItemArray) hasEnoughItems = false;
    if (hasEnoughItems) return true;
    containers.pop_back();
    decideOnMoreItems();
    return true;
}

Json& JsonTreeBuilder::place(Json value) {
    if (containers.empty()) return root = std::move(value);
    if (!containers.back()->is_array()) return *member = std::move(value);
    auto& items = containers.back()->get_ref<Json::array_t&>();
    items.push_back(std::move(value));
    return items.back();
}

void JsonTreeBuilder::decideOnMoreItems() {
    if (!wantsMore || depth != depthOfItemArray) return;
    const Json& items = *containers.back();
    const bool isItemArray = items.is_array() && containers.front()->is_object();
    if (isItemArray) hasEnoughItems = !wantsMore(outermostKey, items);
}

}  // namespace orv
