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
    {platform::kSecureFailureCertRevFailed, L"WinHttpRequest::RequestCallback(): Certificate revocation check failed"},
    {platform::kSecureFailureInvalidCert, L"WinHttpRequest::RequestCallback(): Certificate is invalid"},
    {platform::kSecureFailureCertRevoked, L"WinHttpRequest::RequestCallback(): Certificate has been revoked"},
    {platform::kSecureFailureInvalidCa, L"WinHttpRequest::RequestCallback(): Certificate Authority is unrecognized"},
    {platform::kSecureFailureCertCnInvalid, L"WinHttpRequest::RequestCallback(): Certificate Common Name is incorrect"},
    {platform::kSecureFailureCertDateInvalid, L"WinHttpRequest::RequestCallback(): Certificate is expired"},
    {platform::kSecureFailureSecurityChannelError, L"WinHttpRequest::RequestCallback(): Internal ssl library error"},
    {platform::kSecureFailureCertWrongUsage,
     L"WinHttpRequest::RequestCallback(): Server's certificate has wrong usage"},
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
  switch (api) {
    case platform::kApiReceiveResponse:
      return L"WinHttpReceiveResponse";
    case platform::kApiQueryDataAvailable:
      return L"WinHttpQueryDataAvailable";
    case platform::kApiReadData:
      return L"WinHttpReadData";
    case platform::kApiWriteData:
      return L"WinHttpWriteData";
    case platform::kApiSendRequest:
      return L"WinHttpSendRequest";
    default:
      return L"unknown code: " + std::to_wstring(api);
  }
}

void logSecureFailure(std::uint32_t bits) {
  for (const auto& [bit, text] : kSecureFailures) {
    if ((bits & bit) != 0) {
      CORE::log(CORE::kDebug, L"%s", text);
    }
  }
}
