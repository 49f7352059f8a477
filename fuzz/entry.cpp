#include <cstdint>

#include "fuzz/fuzz.h"

/// libFuzzer calls this function with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::target({reinterpret_cast<const char*>(data), size});
  return 0;
}
