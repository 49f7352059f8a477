#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CORE {

/// Whole-text equality in the user's default locale (CompareStringW over the shorter length plus the terminator: only
/// texts of equal length can be equal; a prefix is not).
bool equalText(std::wstring_view first, std::wstring_view second, bool ignoreCase);

/// As equalText with CompareStringA and without flags: exact and case-sensitive.
bool equalNarrow(std::string_view first, std::string_view second);

/// A lower-cased copy (CharLowerBuffW, CharLowerBuffA).
std::wstring lowered(std::wstring_view text);
std::string loweredNarrow(std::string_view text);

/// The pieces between separators; always one more piece than separators, so the empty text gives one empty piece.
std::vector<std::wstring> splitText(std::wstring_view text, wchar_t separator);

/// The strings with the separator between neighbours, also round empty members.
std::wstring joinStrings(const std::vector<std::wstring>& strings, std::wstring_view separator);

/// The text without the given characters at both ends.
std::wstring_view trimmed(std::wstring_view text, std::wstring_view characters = L" \t\r\n");

/// The framework's text-to-boolean rule: "true", "yes", "on" in any case and non-zero numbers are true, all else false.
bool textToBool(std::wstring_view text);

}  // namespace CORE
