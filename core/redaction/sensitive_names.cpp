#include "core/redaction/sensitive_names.h"

#include <algorithm>
#include <array>

#include "core/text/text.h"

namespace CORE {
namespace {

constexpr std::array<std::wstring_view, 12> kSensitiveNames = {
    L"password",        L"smartcardpin",           L"ticket",         L"token",
    L"bindingtoken",    L"frameworkchannelticket", L"certificate",    L"otp",
    L"oneTimePassword", L"auxiliaryPassword",      L"rdslicensedata", L"whfbsessionpin",
};

}  // namespace

bool isSensitiveName(std::wstring_view name) {
  return std::any_of(kSensitiveNames.begin(), kSensitiveNames.end(),
                     [name](std::wstring_view row) { return equalText(name, row, true); });
}

}  // namespace CORE
