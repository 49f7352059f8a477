#include "http/proxy/system_proxy.h"

#include <cstdint>
#include <utility>

#include "core/base/memory_guard.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/text.h"
#include "http/proxy/ie_proxy_config.h"
#include "http/proxy/proxy_list.h"
#include "http/proxy/user_agents.h"
#include "http/proxy/wininet_url.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

namespace {

const wchar_t* orNone(const std::wstring& text) { return text.empty() ? L"(none)" : text.c_str(); }

// The sources, in the order in which they are asked. Each returns whether the search ends with it; `chosen` stays empty
// until a source has found a proxy.

bool fromManualPac(ChosenProxy& chosen, const std::wstring& targetUrl, const std::wstring& pacUrl) {
  if (pacUrl.empty() || !SystemProxy::ResolvePacUrl(pacUrl, targetUrl, chosen.servers, kPacUserAgent)) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Found proxy via manual PAC URL: %s", chosen.servers);
  return true;
}

bool fromWpad(ChosenProxy& chosen, const std::wstring& targetUrl) {
  std::wstring pacUrl;
  if (!SystemProxy::DetectWpad(pacUrl) ||
      !SystemProxy::ResolvePacUrl(pacUrl, targetUrl, chosen.servers, kPacUserAgent)) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Found proxy via WPAD PAC URL: %s", chosen.servers);
  return true;
}

bool fromIeAutoConfig(ChosenProxy& chosen, const std::wstring& targetUrl, const IEProxyConfig& ie) {
  if (!ie.hasAutoConfigUrl() ||
      !SystemProxy::ResolvePacUrl(ie.autoConfigUrl(), targetUrl, chosen.servers, kPacUserAgent)) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Found proxy via IE automatic proxy: %s", chosen.servers);
  return true;
}

bool fromManualList(ChosenProxy& chosen, const std::wstring& targetUrl, const std::wstring& servers,
                    const std::wstring& bypass) {
  if (servers.empty()) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Sanitizing manual proxy: %s", servers);
  chosen.servers = proxy_list::join(SystemProxy::ExtractAllWinHTTPProxies(targetUrl, servers));
  if (chosen.servers.empty()) {
    CORE::log(CORE::kWarn, L"SystemProxy::ChooseProxyServer(): Unable to sanitize manual proxy list.");
    return true;  // kept: a list that was given ends the search even so
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Using sanitized manual proxy: %s", chosen.servers);
  chosen.bypass = bypass;
  return true;
}

bool fromIeProxy(ChosenProxy& chosen, const IEProxyConfig& ie) {
  if (!ie.hasProxy()) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Found proxy via IE named proxy.");
  chosen = {ie.proxy(), ie.proxyBypass()};  // kept: as they are
  return true;
}

bool fromWinHttp(ChosenProxy& chosen, const std::wstring& targetUrl) {
  std::wstring servers;
  std::wstring bypass;
  if (!SystemProxy::GetWinHttpProxy(servers, bypass) || servers.empty()) {
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Found proxy via WinHTTP settings. Sanitizing it.");
  chosen.servers = proxy_list::join(SystemProxy::ExtractAllWinHTTPProxies(targetUrl, servers));
  if (chosen.servers.empty()) {
    CORE::log(CORE::kError, L"SystemProxy::ChooseProxyServer(): Unable to sanitize WinHTTP proxy list.");
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): Using sanitized WinHTTP proxy: %s", chosen.servers);
  chosen.bypass = std::move(bypass);
  return true;
}

/// Returns the entries that serve a scheme. Upper and lower case of the scheme differ.
std::vector<std::wstring> entriesFor(const std::wstring& scheme, proxy_list::Table table,
                                     const std::wstring& targetUrl) {
  if (CORE::equalText(scheme, L"http", false)) {
    return proxy_list::withPlain(std::move(table.http), table);
  }
  if (CORE::equalText(scheme, L"https", false)) {
    return proxy_list::withPlain(std::move(table.https), table);
  }
  if (CORE::equalText(scheme, L"socks", false)) {
    return proxy_list::withPlain(std::move(table.socks), table);
  }
  CORE::log(CORE::kError, L"SystemProxy::ExtractAllWinHTTPProxies(): Unknown scheme: %s for target URL: %s", scheme,
            targetUrl);
  return std::move(table.plain);
}

}  // namespace

void SystemProxy::ChooseProxyServer(ChosenProxy& chosen, const std::wstring& targetUrl,
                                    const std::wstring& manualPacUrl, const std::wstring& manualServers,
                                    const std::wstring& manualBypass) {
  CORE::guardMemory([&] {
    chosen = {};
    IEProxyConfig ie;
    ie.init();  // a failure leaves it without proxies
    const bool ended = fromManualPac(chosen, targetUrl, manualPacUrl) || fromWpad(chosen, targetUrl) ||
                       fromIeAutoConfig(chosen, targetUrl, ie) ||
                       fromManualList(chosen, targetUrl, manualServers, manualBypass) || fromIeProxy(chosen, ie) ||
                       fromWinHttp(chosen, targetUrl);
    if (!ended) {
      CORE::log(CORE::kDebug, L"SystemProxy::ChooseProxyServer(): No proxy found, using default settings.");
    }
  });
}

bool SystemProxy::ResolvePacUrl(const std::wstring& pacUrl, const std::wstring& targetUrl, std::wstring& proxy,
                                const std::wstring& userAgent) {
  auto& winHttp = platform::current().winHttp;
  proxy.clear();
  if (pacUrl.empty() || targetUrl.empty()) {
    CORE::log(CORE::kDebug, L"SystemProxy::ResolvePacUrl(): No PAC URL or Target URL provded.");  // kept: spelling
    return false;
  }
  const auto session =
      winHttp.WinHttpOpen(userAgent, platform::kAccessTypeNoProxy, {}, {}, platform::kWinHttpFlagAsync);
  if (!session) {
    CORE::log(CORE::kError, L"SystemProxy::ResolvePacUrl(): WinHttpOpen failed: %s",
              CORE::systemErrorText(session.error));
    return false;
  }
  CORE::log(CORE::kDebug, L"SystemProxy::ResolvePacUrl(): Attempting to find a proxy for target %s using PAC Url: %s",
            targetUrl, pacUrl);
  auto found = CORE::guardMemory([&] {
    const platform::AutoProxyOptions options{platform::kAutoProxyConfigUrl, 0, pacUrl, true};
    return winHttp.WinHttpGetProxyForUrl(session.value.get(), targetUrl, options);
  });
  if (!found) {
    CORE::log(CORE::kError, L"SystemProxy::ResolvePacUrl(): Unable to find proxy with given pac file: 0x%x (%s)",
              found.error, CORE::moduleErrorText(L"winhttp.dll", found.error));
    return false;
  }
  CORE::log(CORE::kTrace, L"SystemProxy::ResolvePacUrl(): Ran PAC file. Proxy access type: %d", found.value.accessType);
  if (found.value.proxy.empty()) {
    return false;  // the file asks for a direct connection: the next source may know more
  }
  proxy = std::move(found.value.proxy);
  CORE::log(CORE::kDebug, L"SystemProxy::ResolvePacUrl(): WinHttpGetProxyForUrl -- Found proxy via PAC URL: %s", proxy);
  return true;
}

bool SystemProxy::DetectWpad(std::wstring& pacUrl) {
  auto found = CORE::guardMemory(
      [] { return platform::current().winHttp.WinHttpDetectAutoProxyConfigUrl(platform::kAutoDetectDhcpAndDnsA); });
  pacUrl = std::move(found.value);
  if (!found) {
    CORE::log(CORE::kDebug, L"SystemProxy::DetectWpad(): WinHttpDetectAutoProxyConfigUrl failed: 0x%x (%s)",
              found.error, CORE::moduleErrorText(L"winhttp.dll", found.error));
  }
  return !pacUrl.empty();
}

bool SystemProxy::GetWinHttpProxy(std::wstring& proxy, std::wstring& bypass) {
  auto read = CORE::guardMemory([] { return platform::current().winHttp.WinHttpGetDefaultProxyConfiguration(); });
  proxy = std::move(read.value.proxy);
  bypass = std::move(read.value.bypass);
  if (!read) {
    CORE::log(CORE::kError, L"SystemProxy::GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration failed: %s",
              CORE::systemErrorText(read.error));
    return false;
  }
  CORE::log(
      CORE::kDebug,
      L"SystemProxy::GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration -- Found system proxy: %s\nBypass: %s",
      orNone(proxy), orNone(bypass));
  return true;
}

std::vector<std::wstring> SystemProxy::ExtractAllWinHTTPProxies(const std::wstring& targetUrl,
                                                                const std::wstring& list) {
  return CORE::guardMemory([&]() -> std::vector<std::wstring> {
    std::wstring scheme, host, path;
    std::uint16_t port = 0;
    if (!util::WinInet::CrackUrl(targetUrl, scheme, host, port, path, false)) {
      CORE::log(CORE::kError, L"SystemProxy::ExtractAllWinHTTPProxies(): Unable to parse target URL: %s", targetUrl);
      return {};
    }
    if (scheme.empty()) {
      CORE::log(CORE::kDebug,
                L"SystemProxy::ExtractAllWinHTTPProxies(): No scheme found in target URL: %s. Defaulting to https.",
                targetUrl);
      scheme = L"https";
    }
    return entriesFor(scheme, proxy_list::parse(list), targetUrl);
  });
}
