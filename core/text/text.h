#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CORE {

/// Whether two whole texts are equal in the user's default locale. Only texts of the same length are; a prefix is not.
/// Source: CompareStringW.
bool equalText(std::wstring_view first, std::wstring_view second, bool ignoreCase);

/// Whether two whole narrow texts are equal in the user's default locale; case counts.
/// Source: CompareStringA.
bool equalNarrow(std::string_view first, std::string_view second);

/// Returns a lower-cased copy.
/// Source: CharLowerBuffW, CharLowerBuffA.
std::wstring lowered(std::wstring_view text);
std::string loweredNarrow(std::string_view text);

/// Returns the pieces between the separators. There is always one piece more than separators, so an empty text has one
/// empty piece.
std::vector<std::wstring> splitText(std::wstring_view text, wchar_t separator);

/// Returns the strings in one text, with the separator between neighbours, also where one of them is empty.
std::wstring joinStrings(const std::vector<std::wstring>& strings, std::wstring_view separator);

/// Returns the text without the given characters at its two ends.
std::wstring_view trimmed(std::wstring_view text, std::wstring_view characters = L" \t\r\n");

/// Reads a text as a boolean by the framework's rule: "true", "yes" and "on" in any case and numbers other than 0 are
/// true, everything else is false.
bool textToBool(std::wstring_view text);

}  // namespace CORE
