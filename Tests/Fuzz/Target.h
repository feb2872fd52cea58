#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace orv::fuzz {

/// One family of parsers under bytes from anywhere. A target returns, whatever the bytes are; what
/// must not be ends the program.
using Target = void (*)(std::string_view bytes);

void base64(std::string_view bytes);
void chatMessage(std::string_view bytes);
void controlMessage(std::string_view bytes);
void json(std::string_view bytes);
void propertyList(std::string_view bytes);
void records(std::string_view bytes);
void textLimiter(std::string_view bytes);
void toolOutputs(std::string_view bytes);
void url(std::string_view bytes);

/// Also in builds that leave assertions out.
inline void demand(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

}  // namespace orv::fuzz
