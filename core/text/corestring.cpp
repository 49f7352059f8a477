#include "core/text/corestring.h"

#include <cstring>

namespace CORE {

void wipe(void* memory, std::size_t bytes) noexcept {
  // A volatile pointer, so that the compiler does not know which function is called and cannot leave the call out.
  static void* (*volatile const fill)(void*, int, std::size_t) = std::memset;
  if (bytes > 0) {
    fill(memory, 0, bytes);
  }
}

}  // namespace CORE
