#include "http/proxy/ie_proxy_config.h"

#include <utility>

#include "core/base/memory_guard.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/platform.h"

bool IEProxyConfig::init() {
  settings_ = {};
  auto read = CORE::guardMemory([] { return platform::current().winHttp.WinHttpGetIEProxyConfigForCurrentUser(); });
  if (!read) {
    CORE::log(CORE::kDebug, L"IEProxyConfig::init(): Unable to find IE Proxy Config: %s",
              CORE::systemErrorText(read.error));
    return false;
  }
  settings_ = std::move(read.value);
  CORE::log(
      CORE::kDebug,
      L"IEProxyConfig::init(): Found IE proxy settings. auto-detect=%d,auto-config-url=%s,proxy=%s,proxyBypass=%s",
      settings_.autoDetect, settings_.autoConfigUrl, settings_.proxy, settings_.proxyBypass);
  return true;
}
