#pragma once

#include <string>
#include <vector>

/// The proxy that a request uses: WinHTTP's server list and bypass list. Without servers WinHTTP chooses.
struct ChosenProxy {
  std::wstring servers;
  std::wstring bypass;
};

/// Decides which proxy a request uses. Stateless; any thread. A source that fails is logged, and the next one is tried.
/// CORE::coreException "OutOfMem" is the only exception.
class SystemProxy {
 public:
  /// Asks the sources in order: the given PAC URL, WPAD, the user's automatic configuration, the given list, the user's
  /// named proxy, WinHTTP's own configuration. A given list ends the search even when none of its entries serves the
  /// target. May wait for the network.
  /// \param chosen  both texts are empty when no source has a proxy.
  static void ChooseProxyServer(ChosenProxy& chosen, const std::wstring& targetUrl, const std::wstring& manualPacUrl,
                                const std::wstring& manualServers, const std::wstring& manualBypass);

  /// Runs a PAC file for the target. May wait for the file's download.
  /// \param proxy  WinHTTP's server list; empty on false.
  /// \return false, too, when the file asks for a direct connection.
  static bool ResolvePacUrl(const std::wstring& pacUrl, const std::wstring& targetUrl, std::wstring& proxy,
                            const std::wstring& userAgent);

  /// Searches a PAC URL by DHCP and DNS. May wait for the network.
  /// \param pacUrl  empty on false.
  static bool DetectWpad(std::wstring& pacUrl);

  /// Reads WinHTTP's own configuration. Both texts are empty on false.
  /// \return true when it could be read, even if it names no proxy.
  static bool GetWinHttpProxy(std::wstring& proxy, std::wstring& bypass);

  /// Returns the entries of a proxy list that serve the target's scheme, in order.
  static std::vector<std::wstring> ExtractAllWinHTTPProxies(const std::wstring& targetUrl, const std::wstring& list);
};
