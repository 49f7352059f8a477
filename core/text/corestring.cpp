#include "core/text/corestring.h"

#include <cstring>

namespace CORE {

void wipe(void* memory, std::size_t bytes) noexcept {
  // Through a pointer that the compiler must read: it cannot know what is called, and leave the call out.
  static void* (*volatile const fill)(void*, int, std::size_t) = std::memset;
  if (bytes > 0) {
    fill(memory, 0, bytes);
  }
}

}  // namespace CORE
