#pragma once

#include <string_view>

namespace CORE {

/// What every text shows in place of secret content.
inline constexpr std::wstring_view kSecretMask = L"*****";
inline constexpr std::string_view kSecretMaskNarrow = "*****";

/// What every text shows in place of raw bytes.
inline constexpr std::wstring_view kBinaryMask = L"<BINARY>";
inline constexpr std::string_view kBinaryMaskNarrow = "<BINARY>";

}  // namespace CORE
