#include "OrvPlatform/Uuid.h"

#include <algorithm>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace orv {

std::string randomUuid() {
    boost::uuids::random_generator generate;
    std::string text = boost::uuids::to_string(generate());
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return text;
}

}  // namespace orv
