#include <windows.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "platform/clock.h"
#include "platform/digests.h"
#include "platform/internet.h"
#include "platform/platform.h"
#include "platform/text.h"
#include "platform/winhttp.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr std::int64_t kStepsASecond = 10000000;
constexpr platform::FileTime kNewYear2020 = 132223104000000000;  // 2020-01-01 00:00 UTC, a Wednesday
constexpr std::int64_t kUnixEpoch = 11644473600;                 // in seconds since 1601

void clock() {
  platform::Clock& clock = platform::current().clock;
  const auto parts = clock.FileTimeToSystemTime(kNewYear2020 + 12345 * kStepsASecond + 6780000);
  const platform::SystemTime& time = parts.value;
  that(parts.ok && time.year == 2020 && time.month == 1 && time.day == 1 && time.dayOfWeek == 3 && time.hour == 3 &&
           time.minute == 25 && time.second == 45 && time.milliseconds == 678,
       "clock: a known moment is taken apart");
  that(!clock.FileTimeToSystemTime(~platform::FileTime{0}).ok, "clock: a moment out of range is refused");
  const platform::FileTime now = clock.GetSystemTimeAsFileTime();
  const auto local = clock.FileTimeToLocalFileTime(now);
  const std::int64_t ahead = static_cast<std::int64_t>(local.value - now) / kStepsASecond / 60;
  that(local.ok && ahead % 15 == 0 && std::llabs(ahead) <= 14 * 60, "clock: local time is off by whole quarters");
  const std::int64_t seconds = static_cast<std::int64_t>(now) / kStepsASecond - kUnixEpoch;
  that(std::llabs(clock._time64() - seconds) <= 1, "clock: both clocks show the same second");
}

std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

std::string hex(std::span<const std::byte> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += {kDigits[std::to_integer<int>(byte) >> 4], kDigits[std::to_integer<int>(byte) & 15]};
  }
  return text;
}

// The digest of the data, given in two pieces, as hex text; empty when a call failed.
std::string digestOf(const std::wstring& algorithm, std::string_view key, std::string_view data) {
  platform::Digests& digests = platform::current().digests;
  platform::AlgorithmProvider provider;
  const std::uint32_t flags = key.empty() ? 0 : platform::kBcryptAlgHandleHmacFlag;
  std::uint32_t objectLength = 0;
  std::uint32_t digestLength = 0;
  if (digests.BCryptOpenAlgorithmProvider(provider, algorithm, flags) < 0 ||
      digests.BCryptGetProperty(provider.get(), L"ObjectLength", objectLength) < 0 ||
      digests.BCryptGetProperty(provider.get(), L"HashDigestLength", digestLength) < 0) {
    return {};
  }
  std::vector<std::byte> object(objectLength);
  std::vector<std::byte> digest(digestLength);
  platform::HashHandle hash;
  const bool done = digests.BCryptCreateHash(provider.get(), hash, object, bytesOf(key)) >= 0 &&
                    digests.BCryptHashData(hash.get(), bytesOf(data.substr(0, 1))) >= 0 &&
                    digests.BCryptHashData(hash.get(), bytesOf(data.substr(1))) >= 0 &&
                    digests.BCryptFinishHash(hash.get(), digest) >= 0;
  return done ? hex(digest) : std::string();
}

// FIPS 180-4, RFC 1321 appendix A.5, RFC 4231 test case 2.
void digests() {
  that(digestOf(L"SHA256", "", "abc") == "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
       "digests: SHA-256");
  that(digestOf(L"MD5", "", "abc") == "900150983cd24fb0d6963f7d28e17f72", "digests: MD5");
  that(digestOf(L"SHA256", "Jefe", "what do ya want for nothing?") ==
           "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
       "digests: HMAC-SHA-256");
  that(digestOf(L"NONE", "", "abc").empty(), "digests: an unknown algorithm gives a failure");
}

void text() {
  using platform::kLocaleUserDefault;
  using platform::kNormIgnoreCase;
  platform::Text& text = platform::current().text;
  const std::wstring_view whole = L"AgentCore";
  that(text.CompareStringW(kLocaleUserDefault, kNormIgnoreCase, L"agent", whole.substr(0, 5)) == platform::kCstrEqual &&
           text.CompareStringW(kLocaleUserDefault, 0, L"agent", L"Agent") != platform::kCstrEqual &&
           text.CompareStringW(kLocaleUserDefault, kNormIgnoreCase, L"Agent", whole) == 1 &&
           text.CompareStringW(kLocaleUserDefault, 0, {}, {}) == platform::kCstrEqual &&
           text.CompareStringA(kLocaleUserDefault, kNormIgnoreCase, "X-MS-Date", "x-ms-date") == platform::kCstrEqual,
       "text: views of texts compare, with and without case");
  std::wstring wide = L"PR\u00d6D+Sys";
  text.CharLowerBuffW(wide);
  std::string narrow = "PROD,Sys";
  text.CharLowerBuffA(std::span(narrow).first(5));
  that(wide == L"pr\u00f6d+sys" && narrow == "prod,Sys", "text: it is lowered in place, as far as asked");

  std::array<wchar_t, 4096> buffer{};
  const std::uint32_t flags = platform::kFormatMessageFromSystem | platform::kFormatMessageIgnoreInserts;
  const auto known = text.FormatMessageW(flags, nullptr, 193, buffer);  // a text with an insert
  that(known.ok && known.value > 3 && std::wstring_view(buffer.data(), known.value).ends_with(L"\r\n"),
       "text: the system knows a message, inserts and all");
  const auto unknown = text.FormatMessageW(flags, nullptr, 0x2FFFFFFF, buffer);
  that(!unknown.ok && unknown.value == 0 && unknown.error == ERROR_MR_MID_NOT_FOUND, "text: or says that it does not");

  ::SetEnvironmentVariableW(L"MDDCT_CHECK", L"twelve chars");
  const std::wstring source = L"<%MDDCT_CHECK%>";
  equal(text.ExpandEnvironmentStringsW(source, {}).value, 15, "text: the size of an expansion, with terminator");
  text.ExpandEnvironmentStringsW(source, std::span(buffer).first(15));
  that(std::wstring(buffer.data()) == L"<twelve chars>", "text: variables are replaced");
}

void urls() {
  platform::Internet& internet = platform::current().internet;
  const auto proxy = internet.InternetCrackUrlW(L"http://proxy.example.org:3128/path/to?x=1");
  that(proxy.ok && proxy.value.scheme == L"http" && proxy.value.host == L"proxy.example.org" &&
           proxy.value.port == 3128 && proxy.value.path.starts_with(L"/path/to"),
       "internet: a URL is taken apart");
  const auto refused = internet.InternetCrackUrlW(L"no scheme here");
  that(!refused.ok && refused.error == 12006 && refused.value.host.empty(), "internet: text without scheme is refused");

  platform::WinHttp& winHttp = platform::current().winHttp;
  const auto blob = winHttp.WinHttpCrackUrl(L"https://account.example.org:8443/box/blob.zip?sv=1&sig=a%2Bb");
  that(blob.ok && blob.value.schemeNumber == platform::kSchemeHttps && blob.value.port == 8443 &&
           blob.value.scheme == L"https" && blob.value.host == L"account.example.org" &&
           blob.value.path == L"/box/blob.zip" && blob.value.extra == L"?sv=1&sig=a%2Bb",
       "winhttp: a URL is taken apart");
  equal(winHttp.WinHttpCrackUrl(L"ftp://example.org/").error, platform::kErrorWinHttpUnrecognizedScheme,
        "winhttp: another scheme is refused");
  const auto proxied = winHttp.WinHttpOpen(L"VXAgent", platform::kAccessTypeNamedProxy, L"127.0.0.1:1", L"localhost",
                                           platform::kWinHttpFlagAsync);
  that(proxied.ok, "winhttp: a session with a proxy opens");
}

// In a Windows that knows of no proxy and reaches nobody who tells of one.
void proxies() {
  platform::WinHttp& winHttp = platform::current().winHttp;
  const auto user = winHttp.WinHttpGetIEProxyConfigForCurrentUser();
  that(user.ok && user.value.autoConfigUrl.empty() && user.value.proxy.empty() && user.value.proxyBypass.empty(),
       "winhttp: the user has no proxy");
  const auto machine = winHttp.WinHttpGetDefaultProxyConfiguration();
  that(machine.ok && machine.value.accessType == platform::kAccessTypeNoProxy && machine.value.proxy.empty() &&
           machine.value.bypass.empty(),
       "winhttp: neither has the machine");
  const auto detected = winHttp.WinHttpDetectAutoProxyConfigUrl(platform::kAutoDetectDhcpAndDnsA);
  that(!detected.ok && detected.value.empty(), "winhttp: no PAC file is found");
  equal(detected.error, platform::kErrorWinHttpAutodetectionFailed, "winhttp: and that is why");
  const auto session = winHttp.WinHttpOpen(L"VXAgent", platform::kAccessTypeNoProxy, L"", L"", 0);
  const platform::AutoProxyOptions options{platform::kAutoProxyConfigUrl, 0, L"http://127.0.0.1:1/proxy.pac", true};
  const auto given = winHttp.WinHttpGetProxyForUrl(session.value.get(), L"https://example.org/", options);
  equal(given.error, platform::kErrorWinHttpUnableToDownloadScript, "winhttp: a PAC file that cannot be fetched");
}

}  // namespace

void values() {
  clock();
  digests();
  text();
  urls();
  proxies();
}

}  // namespace check
