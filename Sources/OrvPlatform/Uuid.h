#pragma once

#include <string>

namespace orv {

/// A fresh random UUID as text: "7C1D9B1E-54A0-4C7B-9F0E-2D6A8B3C5E11", upper case.
std::string randomUuid();

}  // namespace orv
