#pragma once

#include <exception>

namespace orv {

/// Whether the error says that a task was told to stop, which is not a failure.
bool isCancellation(const std::exception& error);

/// The error that an interrupted wait throws.
[[noreturn]] void throwCancellation();

}  // namespace orv
