#pragma once

#include <string>

/// The proxy a request is to use: WinHTTP's server and bypass lists; empty servers mean WinHTTP's automatic choice.
struct ChosenProxy {
  std::wstring servers;
  std::wstring bypass;
};

/// Finds the proxy for a request. Stateless; any thread.
class SystemProxy {
 public:
  /// Chooses the lists that were set by hand, as they are. The target and the PAC URL are not looked at, and no proxy
  /// of the system is searched for: without a manual list the result is empty, and WinHTTP looks for itself.
  static void ChooseProxyServer(ChosenProxy& chosen, const std::wstring& targetUrl, const std::wstring& manualPacUrl,
                                const std::wstring& manualServers, const std::wstring& manualBypass);
};
