#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace orv {

bool isTerminal(int descriptor);

/// The next line, without its end (LF or CR LF); nothing at the end of the input. What follows the
/// line is left for the next reader. Throws FileError for a line beyond 64 KiB, or when reading
/// fails.
std::optional<std::string> readLine(int descriptor);

/// The same; when a person types at a terminal, what they type is not shown, and the prompt is
/// called as soon as that is so. Whoever ends the program meanwhile (Ctrl-C) finds the terminal as
/// it was.
std::optional<std::string> readSecretLine(int descriptor, const std::function<void()>& prompt);

/// Everything to the end of the input. Throws FileError when that is more than the limit, or when
/// reading fails.
std::string readToEnd(int descriptor, std::size_t limitBytes);

}  // namespace orv
