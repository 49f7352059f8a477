#pragma once

#include <string_view>

namespace CORE {

/// Names the calling thread in its log lines, between "<" and ">". At most 63 characters are kept; a thread without a
/// name is "worker".
void setLogContext(std::wstring_view name) noexcept;

/// The calling thread's name; valid until it is set again.
std::wstring_view logContext() noexcept;

}  // namespace CORE
