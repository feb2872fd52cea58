#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace orv {

/// The value in the first line that begins with a key and its separator ("=" or ":"), the keys
/// tried in the order given. Blanks, a comment after the value, quotes and a closing ";" are no
/// part of it; a line whose value is empty does not count. Reads the key=value files of the
/// remote-desktop tools, TOML as far as they use it, and what "/usr/bin/defaults read" prints
/// (where keys may be quoted).
std::optional<std::string> configId(std::string_view text,
                                    std::initializer_list<std::string_view> keys);

/// The identifiers under which the tools' servers know this machine, each with its tool's keys.
std::optional<std::string> anyDeskId(std::string_view configuration);
std::optional<std::string> teamViewerId(std::string_view preferences);
std::optional<std::string> rustDeskIdFromToml(std::string_view toml);

}  // namespace orv
