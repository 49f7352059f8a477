#pragma once

#include <string>
#include <vector>

/// The proxy a request is to use: WinHTTP's server and bypass lists; empty servers mean WinHTTP's automatic choice.
struct ChosenProxy {
  std::wstring servers;
  std::wstring bypass;
};

/// Finds the proxy for a request. Stateless; any thread. No source that fails is fatal: it is logged, and the next one
/// is tried. \throws CORE::coreException "OutOfMem" only.
class SystemProxy {
 public:
  /// Asks the sources in order: the given PAC URL, WPAD, the user's automatic configuration, the given list, the user's
  /// named proxy, WinHTTP's own configuration. Both texts of `chosen` are empty when none has a proxy. A given list
  /// ends the search even when nothing in it fits the target.
  static void ChooseProxyServer(ChosenProxy& chosen, const std::wstring& targetUrl, const std::wstring& manualPacUrl,
                                const std::wstring& manualServers, const std::wstring& manualBypass);

  /// Runs a PAC file for the target. May wait for the file's download.
  /// \param proxy  WinHTTP's server list; empty on false.
  static bool ResolvePacUrl(const std::wstring& pacUrl, const std::wstring& targetUrl, std::wstring& proxy,
                            const std::wstring& userAgent);

  /// Looks for a PAC URL by DHCP and DNS; empty on false.
  static bool DetectWpad(std::wstring& pacUrl);

  /// WinHTTP's own configuration. True when it could be read, even if it names no proxy; both empty on false.
  static bool GetWinHttpProxy(std::wstring& proxy, std::wstring& bypass);

  /// The entries of a proxy list that serve the target's scheme, in order.
  static std::vector<std::wstring> ExtractAllWinHTTPProxies(const std::wstring& targetUrl, const std::wstring& list);
};
