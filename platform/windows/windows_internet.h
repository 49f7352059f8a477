#pragma once

#include "platform/internet.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsInternet final : public Internet {
 public:
  std::int32_t IsValidURL(const std::wstring& url) override;
  Result<UrlComponents> InternetCrackUrlW(const std::wstring& url) override;
};

}  // namespace platform
