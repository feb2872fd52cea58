#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "OrvPlatform/Json.h"

namespace orv {

/// Takes what the JSON library reads of a text, value by value, and keeps it as a tree, without a
/// second pass for the limits: throws DecodingError at the first error and at the 513th level.
class JsonTreeBuilder {
public:
    explicit JsonTreeBuilder(const WantsMoreItems& wantsMoreItems) : wantsMore(wantsMoreItems) {}

    Json takeTree() { return std::move(root); }

    // The names and results that the library asks for; false would end the reading.
    // NOLINTBEGIN(readability-identifier-naming)
    bool null() { return add(nullptr); }
    bool boolean(bool value) { return add(value); }
    bool number_integer(std::int64_t value) { return add(value); }
    bool number_unsigned(std::uint64_t value) { return add(value); }
    bool number_float(double value, const std::string&) { return add(value); }
    bool string(const std::string& value) { return add(value); }
    bool binary(const Json::binary_t& value) { return add(value); }
    bool start_object(std::size_t) { return open(Json::value_t::object); }
    bool start_array(std::size_t) { return open(Json::value_t::array); }
    bool end_object() { return close(); }
    bool end_array() { return close(); }
    bool key(const std::string& name);
    bool parse_error(std::size_t byte, const std::string& token, const Json::exception& error);
    // NOLINTEND(readability-identifier-naming)

private:
    template <typename Value>
    bool add(const Value& value) {
        if (hasEnoughItems) return true;
        place(value);
        decideOnMoreItems();
        return true;
    }
    bool open(Json::value_t type);
    bool close();
    Json& place(Json value);
    void decideOnMoreItems();

    const WantsMoreItems& wantsMore;
    Json root;
    std::vector<Json*> containers;  // the open ones that are kept, from the outermost
    Json* member = nullptr;         // of the innermost, an object: where its next value goes
    std::string outermostKey;
    int depth = 0;  // of all open containers
    bool hasEnoughItems = false;
};

}  // namespace orv
