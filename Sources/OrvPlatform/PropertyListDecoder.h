#pragma once

#include <string_view>

#include "OrvPlatform/Json.h"

namespace orv {

enum class PropertyListForm { xml, binary };

/// The system library's reading of a list that checkPropertyList has passed. Throws DecodingError.
Json decodePropertyList(std::string_view bytes, PropertyListForm form);

/// Throws DecodingError when the list could make a library that reads it recurse or allocate
/// without bound; what it does not look at (the XML form's syntax, the content of texts and
/// numbers) is left to the library.
void checkPropertyList(std::string_view bytes, PropertyListForm form);

/// Data as property lists write it in JSON: Base64 on one line.
std::string propertyListData(std::string_view bytes);

/// A date as property lists write it in JSON.
std::string propertyListDate(double secondsSince2001);

}  // namespace orv
