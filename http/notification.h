#pragma once

#include <cstdint>
#include <string>

/// What one status notification of WinHTTP brought, copied out of WinHTTP's memory.
struct Notification {
  std::uint32_t status = 0;
  std::uint32_t number = 0;  ///< bytes, bits or error number, by status
  std::uintptr_t api = 0;    ///< REQUEST_ERROR: the number of the API that failed
};

/// Copies what a notification points to.
Notification copyNotification(std::uint32_t status, const void* information, std::uint32_t informationLength);

/// Returns the name of the API with that number (WINHTTP_ASYNC_RESULT), or "unknown code: " and the number.
std::wstring apiName(std::uintptr_t api);

/// Logs a line for each bit of a SECURE_FAILURE that is set.
void logSecureFailure(std::uint32_t bits);
