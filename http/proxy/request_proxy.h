#pragma once

#include <string>

#include "core/text/corestring.h"

/// The proxy of one request: what its owner has set and, once the choice is made, what it goes through.
struct RequestProxy {
  std::wstring servers;  ///< WinHTTP's server list; empty leaves the choice to WinHTTP
  std::wstring bypass;   ///< WinHTTP's bypass list; counts together with servers only
  std::wstring user;
  CORE::wstr password;  ///< marked secret
  std::wstring pacUrl;  ///< the PAC file that is asked first

  bool isNamed() const { return !servers.empty(); }
};
