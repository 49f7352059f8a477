#pragma once

#include <string_view>

namespace CORE {

/// Sets the name that stands for the calling thread in its log lines, between "<" and ">". At most 63 characters are
/// kept. A thread without a name shows as "worker".
void setLogContext(std::wstring_view name) noexcept;

/// Returns the calling thread's name; the text is valid until the thread sets another one.
std::wstring_view logContext() noexcept;

}  // namespace CORE
