#pragma once

#include <string>

#include "platform/winhttp.h"

/// The proxy settings of the account that the program runs as. Empty until init() has succeeded. One thread at a time.
class IEProxyConfig {
 public:
  /// Reads the settings.
  /// \return false, with everything empty, when they cannot be read.
  /// Source: WinHttpGetIEProxyConfigForCurrentUser.
  bool init();

  bool hasAutoConfigUrl() const { return !settings_.autoConfigUrl.empty(); }
  bool hasProxy() const { return !settings_.proxy.empty(); }

  bool autoDetect() const { return settings_.autoDetect; }
  const std::wstring& autoConfigUrl() const { return settings_.autoConfigUrl; }
  const std::wstring& proxy() const { return settings_.proxy; }
  const std::wstring& proxyBypass() const { return settings_.proxyBypass; }

 private:
  platform::IeProxySettings settings_;
};
