#include "platform/internet.h"
#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

namespace check {

void internet() {
  platform::Internet& internet = platform::current().internet;
  equal(static_cast<std::uint64_t>(internet.IsValidURL(L"https://example.org/a?b=c")), 0, "internet: a URL is valid");

  const auto parts = internet.InternetCrackUrlW(L"http://proxy.example.org:3128/path/to?x=1");
  that(parts.ok, "internet: a URL is taken apart");
  equal(parts.value.scheme, L"http", "internet: scheme");
  equal(parts.value.host, L"proxy.example.org", "internet: host");
  equal(parts.value.port, 3128, "internet: port");
  that(parts.value.path.starts_with(L"/path/to"), "internet: path");
  const auto withoutPort = internet.InternetCrackUrlW(L"https://example.org");
  that(withoutPort.ok && withoutPort.value.port == 443, "internet: the port of the scheme stands in");
  const auto refused = internet.InternetCrackUrlW(L"no scheme here");
  that(!refused.ok && refused.error == 12006 && refused.value.host.empty(), "internet: text without scheme is refused");
}

}  // namespace check
