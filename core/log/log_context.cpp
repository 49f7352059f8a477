#include "core/log/log_context.h"

#include <algorithm>
#include <cstddef>

namespace CORE {
namespace {

/// The memory has no destructor, because threads log until their very end: after the destructors of their objects.
struct Name {
  wchar_t text[63];
  std::size_t size;
};

thread_local Name current = {L"worker", 6};

}  // namespace

void setLogContext(std::wstring_view name) noexcept {
  current.size = std::min(name.size(), std::size(current.text));
  std::copy_n(name.begin(), current.size, current.text);
}

std::wstring_view logContext() noexcept { return {current.text, current.size}; }

}  // namespace CORE
