#pragma once

#include <string_view>

namespace CORE {

/// Stands in every text for content that must not be shown.
inline constexpr std::wstring_view kSecretMask = L"*****";
inline constexpr std::string_view kSecretMaskNarrow = "*****";

/// Stands in every text for raw bytes.
inline constexpr std::wstring_view kBinaryMask = L"<BINARY>";
inline constexpr std::string_view kBinaryMaskNarrow = "<BINARY>";

}  // namespace CORE
