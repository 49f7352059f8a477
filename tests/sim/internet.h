#pragma once

#include <optional>

#include "platform/internet.h"
#include "tests/sim/kernel.h"

namespace sim {

/// URL services of WinINet and urlmon.
class Internet : public platform::Internet {
 public:
  explicit Internet(Kernel& kernel) : kernel_(kernel) {}

  /// What IsValidURL answers whatever it is given; without it, S_OK for an absolute URL and S_FALSE (1) otherwise.
  std::optional<std::int32_t> validUrlResult;

  std::int32_t IsValidURL(const std::wstring& url) override;
  platform::Result<platform::UrlComponents> InternetCrackUrlW(const std::wstring& url) override;

 private:
  Kernel& kernel_;
};

/// Takes a URL apart: error 12005 (not a URL) or 12006 (a scheme that is neither http nor https) as WinHttpCrackUrl.
platform::Result<platform::UrlComponents> splitUrl(const std::wstring& url);

}  // namespace sim
