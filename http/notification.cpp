#include "http/notification.h"

#include <array>
#include <cstring>

#include "core/log/log.h"
#include "platform/winhttp.h"

namespace {

/// Returns the 32-bit number that a notification points to; 0 when it points to none.
std::uint32_t numberAt(const void* information) {
  std::uint32_t number = 0;
  if (information != nullptr) {
    std::memcpy(&number, information, sizeof(number));
  }
  return number;
}

struct SecureFailureText {
  std::uint32_t bit;
  const wchar_t* text;
};

// The texts name WinHttpRequest's callback, which logs them.
constexpr std::array<SecureFailureText, 8> kSecureFailures = {{
    {0x1, L"WinHttpRequest::RequestCallback(): Certificate revocation check failed"},
    {0x2, L"WinHttpRequest::RequestCallback(): Certificate is invalid"},
    {0x4, L"WinHttpRequest::RequestCallback(): Certificate has been revoked"},
    {0x8, L"WinHttpRequest::RequestCallback(): Certificate Authority is unrecognized"},
    {0x10, L"WinHttpRequest::RequestCallback(): Certificate Common Name is incorrect"},
    {0x20, L"WinHttpRequest::RequestCallback(): Certificate is expired"},
    {0x80000000, L"WinHttpRequest::RequestCallback(): Internal ssl library error"},
    {0x40, L"WinHttpRequest::RequestCallback(): Server's certificate has wrong usage"},
}};

}  // namespace

Notification copyNotification(std::uint32_t status, const void* information, std::uint32_t informationLength) {
  switch (status) {
    case platform::kStatusDataAvailable:
    case platform::kStatusWriteComplete:
    case platform::kStatusSecureFailure:
      return {status, numberAt(information), 0};
    case platform::kStatusReadComplete:
      return {status, informationLength, 0};
    case platform::kStatusRequestError: {
      platform::AsyncResult result{};
      if (information != nullptr) {
        std::memcpy(&result, information, sizeof(result));
      }
      return {status, result.error, result.result};
    }
    default:
      return {status, 0, 0};
  }
}

std::wstring apiName(std::uintptr_t api) {
  constexpr std::array<const wchar_t*, 5> kNames = {L"WinHttpReceiveResponse", L"WinHttpQueryDataAvailable",
                                                    L"WinHttpReadData", L"WinHttpWriteData", L"WinHttpSendRequest"};
  if (1 <= api && api <= kNames.size()) {
    return kNames[api - 1];
  }
  return L"unknown code: " + std::to_wstring(api);
}

void logSecureFailure(std::uint32_t bits) {
  for (const auto& [bit, text] : kSecureFailures) {
    if ((bits & bit) != 0) {
      CORE::log(CORE::kDebug, L"%s", text);
    }
  }
}
