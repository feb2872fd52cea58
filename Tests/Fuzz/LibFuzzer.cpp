// One target as a libFuzzer program, to look for what the corpus does not have yet.

#include <cstddef>
#include <cstdint>

#include "Fuzz/Target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orv::fuzz::ORV_FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
    return 0;
}
