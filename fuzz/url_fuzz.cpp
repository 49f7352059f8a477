#include <tuple>

#include "core/base/unicode.h"
#include "fuzz/fuzz.h"
#include "http/proxy/wininet_url.h"
#include "http/win_http_request.h"
#include "tests/sim/windows.h"

// Compares the two URL splitters, which both use the simulated platform's reading of URLs.

namespace {

using Parts = std::tuple<std::uint32_t, std::wstring, std::uint16_t, std::wstring, std::wstring>;
using InetParts = std::tuple<std::wstring, std::wstring, std::uint16_t, std::wstring>;

// Both are called with one of their outputs as the input.
Parts crack(const std::wstring& url, bool plain) {
  Parts out(9, url, 9, L"old", L"old");
  auto& [scheme, host, port, path, extra] = out;
  FUZZ_CHECK(WinHttpRequest::CrackURL(host, scheme, host, port, path, extra, plain) == (out != Parts()));
  return out;
}

InetParts crackInet(const std::wstring& url, bool plain) {
  InetParts out(L"old", url, 9, L"old");
  auto& [scheme, host, port, path] = out;
  FUZZ_CHECK(util::WinInet::CrackUrl(host, scheme, host, port, path, plain) == (out != InetParts()));
  return out;
}

void check(const std::wstring& url, bool plain) {
  const Parts parts = crack(url, plain);
  const InetParts inet = crackInet(url, plain);
  const auto& [scheme, host, port, path, extra] = parts;
  const bool hasScheme = url.find(L"://") != url.npos;
  FUZZ_CHECK(parts == crack((hasScheme ? L"" : plain ? L"http://" : L"https://") + url, !plain));
  FUZZ_CHECK(parts == Parts() ||
             (!host.empty() && (hasScheme ? scheme == 1 || scheme == 2 : scheme == (plain ? 1 : 2))));
  FUZZ_CHECK(url.ends_with(path + extra));
  FUZZ_CHECK(path.find_first_of(L"?#") == path.npos && (extra.empty() || extra[0] == L'?' || extra[0] == L'#'));

  if (url.find(L' ') != url.npos) {
    FUZZ_CHECK(inet == InetParts());
  } else if (hasScheme == (url.find(L"//") != url.npos)) {  // else they disagree on whether there is a scheme
    FUZZ_CHECK((parts == Parts()) == (inet == InetParts()));
    FUZZ_CHECK(host == std::get<1>(inet) && port == std::get<2>(inet) && path + extra == std::get<3>(inet));
  }
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  const std::wstring url = CORE::toWideLossy(input);
  check(url, false);
  check(url, true);
  check(L"https://" + url, false);
}
