#pragma once

/// The names under which the program speaks HTTP. Servers and proxies log and filter by them.

/// Of every request: uploads, probes and CRL downloads.
inline constexpr wchar_t kRequestUserAgent[] = L"VXAgent";

/// Of the download of a PAC file.
inline constexpr wchar_t kPacUserAgent[] = L"Meridon Agent";
