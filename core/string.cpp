#include "core/string.h"

namespace CORE {

void wipe(void* memory, std::size_t bytes) noexcept {
  auto* at = static_cast<volatile unsigned char*>(memory);
  for (std::size_t i = 0; i < bytes; ++i) {
    at[i] = 0;
  }
}

}  // namespace CORE
