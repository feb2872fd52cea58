#include <cstdlib>
#include <memory>

#include <plist/plist.h>

#include "OrvPlatform/PropertyListDecoder.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

struct FreePlist {
    void operator()(void* list) const { plist_free(list); }
};
using OwnedPlist = std::unique_ptr<void, FreePlist>;

struct FreeMemory {
    // The library hands out what malloc gave it.
    void operator()(void* memory) const { std::free(memory); }  // NOLINT(*-no-malloc)
};
using OwnedMemory = std::unique_ptr<void, FreeMemory>;

Json valueOf(plist_t node);

Json arrayOf(plist_t node) {
    Json array = Json::array();
    const std::uint32_t count = plist_array_get_size(node);
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const OwnedMemory owner(iterator);
    for (std::uint32_t i = 0; i < count; ++i) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        array.push_back(valueOf(item));
    }
    return array;
}

Json objectOf(plist_t node) {
    Json object = Json::object();
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const OwnedMemory owner(iterator);
    for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        const OwnedMemory keyOwner(key);
        if (item == nullptr || key == nullptr) return object;
        object[replacingInvalidUtf8(key)] = valueOf(item);
    }
}

Json valueOf(plist_t node) {
    std::uint64_t length = 0;
    switch (plist_get_node_type(node)) {
        case PLIST_DICT: return objectOf(node);
        case PLIST_ARRAY: return arrayOf(node);
        case PLIST_STRING: {
            const char* text = plist_get_string_ptr(node, &length);
            return replacingInvalidUtf8({text, static_cast<std::size_t>(length)});
        }
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return value != 0;
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return static_cast<std::int64_t>(value);
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0;
            std::int32_t microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            return propertyListDate(seconds);
        }
        case PLIST_DATA: {
            const char* data = plist_get_data_ptr(node, &length);
            return propertyListData({data, static_cast<std::size_t>(length)});
        }
        default: return nullptr;
    }
}

}  // namespace

Json decodePropertyList(std::string_view bytes, PropertyListForm form) {
    plist_t list = nullptr;
    const char* data = bytes.data();
    const auto size = static_cast<std::uint32_t>(bytes.size());
    if (form == PropertyListForm::binary) {
        plist_from_bin(data, size, &list);
    } else {
        plist_from_xml(data, size, &list);
    }
    const OwnedPlist owner(list);
    if (list == nullptr) throw DecodingError("Not a valid property list.");
    return valueOf(list);
}

}  // namespace orv
