#include "core/log/log_context.h"

#include <algorithm>
#include <cstddef>

namespace CORE {
namespace {

/// Plain memory without a destructor: threads may log until their very end.
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
