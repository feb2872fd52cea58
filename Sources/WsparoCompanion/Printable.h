#pragma once

#include <string>
#include <string_view>

namespace orv::companion {

/// A text from outside, fit for a terminal: control characters, marks that turn the direction of
/// writing and bytes that are no UTF-8 become U+FFFD, so that nobody's message can move the cursor
/// or pretend to be ours. On one line: white space of any kind becomes a blank.
std::string printableLine(std::string_view text);

/// The same with line feeds and tabs kept; each further line is indented.
std::string printableBlock(std::string_view text, std::string_view indentation);

}  // namespace orv::companion
