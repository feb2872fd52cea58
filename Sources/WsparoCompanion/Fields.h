#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orv::companion {

/// Lines of a label and a value each, the values below each other.
class Fields {
public:
    void add(std::string label, std::string value) {
        fields.emplace_back(std::move(label), std::move(value));
    }

    /// Without a line feed at the end.
    std::string text() const;

private:
    std::vector<std::pair<std::string, std::string>> fields;
};

}  // namespace orv::companion
