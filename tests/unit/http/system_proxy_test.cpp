#include "http/system_proxy.h"

#include <gtest/gtest.h>

#include "core/text.h"
#include "http/proxy_list.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

const wchar_t kTarget[] = L"https://h/c/b.zip?sv=1";

/// One choice on a Windows where `sources` are to be found: manual PAC URL, WPAD's, the user's; manual list, the
/// user's, WinHTTP's, with "," between them. The PAC files "a", "b" and "c" name the proxy "via <file>", "direct" names
/// none.
struct Choice {
  explicit Choice(const wchar_t* sources, const char* failing = "none", const std::wstring& target = kTarget) {
    sim::Windows windows;
    sim::LogCapture log(windows);
    const std::string before = windows.openHandlesText();
    const auto source = CORE::splitText(sources, L',');
    auto& proxies = windows.winHttp.proxies;
    proxies.wpadUrl = source[1];
    proxies.ie = {true, source[2], source[4], L"ie bypass"};
    proxies.winHttpDefault = {0, source[5], L"winhttp bypass"};
    for (const std::wstring file : {L"a", L"b", L"c", L"direct"}) {
      proxies.pacFiles[file] = [&, file](const std::wstring& url) {
        EXPECT_EQ(url, target);
        return file == L"direct" ? L"" : L"via " + file;
      };
    }
    windows.faults.failAll(failing, 5);
    ChosenProxy chosen{L"old", L"old"};
    SystemProxy::ChooseProxyServer(chosen, target, source[0], source[3], L"manual bypass");
    result = chosen.servers + L"|" + chosen.bypass;
    for (const auto& line : log.lines()) {
      lines += std::to_wstring(line.level) + L" " + line.message + L"\n";
    }
    EXPECT_EQ(windows.openHandlesText(), before);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }
  bool has(const std::wstring& line) const { return lines.find(line + L"\n") != lines.npos; }

  std::wstring result;
  std::wstring lines;
};

TEST(SystemProxyTest, TheFirstSourceWithAProxyWins) {
  struct Row {
    const wchar_t* sources;
    const char* failing;  // a platform call
    const wchar_t *result, *line;
  };
  const auto any = "none";
  const auto manual = L"http://m;http://n|manual bypass";
  const Row rows[] = {
      {L"a,b,c,https=m;n,i,w", any, L"via a|",
       L"1 SystemProxy::ChooseProxyServer(): Found proxy via manual PAC URL: via a"},
      {L"gone,b,c,m,i,w", any, L"via b|",
       L"4 SystemProxy::ResolvePacUrl(): Unable to find proxy with given pac file: 0x2f87 (WinHTTP message 12167.)"},
      {L",b,c,m,i,w", any, L"via b|", L"1 SystemProxy::ChooseProxyServer(): Found proxy via WPAD PAC URL: via b"},
      {L",b,c,m,i,w", "WinHttpDetectAutoProxyConfigUrl", L"via c|",
       L"1 SystemProxy::DetectWpad(): WinHttpDetectAutoProxyConfigUrl failed: WinHTTP message 5."},
      {L"direct,gone,c,m,i,w", any, L"via c|",
       L"1 SystemProxy::ChooseProxyServer(): Found proxy via IE automatic proxy: via c"},
      {L"a,b,c,https=m;n,i,w", "WinHttpGetProxyForUrl", manual,
       L"1 SystemProxy::ChooseProxyServer(): Using sanitized manual proxy: http://m;http://n"},
      {L"a,b,c,https=m;n,i,w", "WinHttpOpen", manual,
       L"4 SystemProxy::ResolvePacUrl(): WinHttpOpen failed: Message 5."},
      {L",,,http=m,i,w", any, L"|", L"3 SystemProxy::ChooseProxyServer(): Unable to sanitize manual proxy list."},
      {L",,,m,i,w", "InternetCrackUrlW", L"|",
       L"4 SystemProxy::ExtractAllWinHTTPProxies(): Unable to parse target URL: https://h/c/b.zip?sv=1"},
      {L",,,,http=i x,w", any, L"http=i x|ie bypass",
       L"1 SystemProxy::ChooseProxyServer(): Found proxy via IE named proxy."},
      {L",,c,,i,v http=w", "WinHttpGetIEProxyConfigForCurrentUser", L"http://v|winhttp bypass",
       L"1 IEProxyConfig::init(): Unable to find IE Proxy Config: Message 5."},
      {L",,,,,v http=w", any, L"http://v|winhttp bypass",
       L"1 SystemProxy::ChooseProxyServer(): Using sanitized WinHTTP proxy: http://v"},
      {L",,,,,http=w", any, L"|", L"4 SystemProxy::ChooseProxyServer(): Unable to sanitize WinHTTP proxy list."},
      {L",,,,,w", "WinHttpGetDefaultProxyConfiguration", L"|",
       L"4 SystemProxy::GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration failed: Message 5."},
  };
  for (const Row& row : rows) {
    const Choice choice(row.sources, row.failing);
    EXPECT_EQ(choice.result, row.result) << row.line;
    EXPECT_TRUE(choice.has(row.line)) << row.line << L"\n" << choice.lines;
  }
}

TEST(SystemProxyTest, SaysWhatItAskedAndFound) {
  EXPECT_EQ(
      Choice(L"direct,,c,,,").lines,
      L"1 IEProxyConfig::init(): Found IE proxy settings. auto-detect=1,auto-config-url=c,proxy=,proxyBypass=ie bypass\n"
      L"1 SystemProxy::ResolvePacUrl(): Attempting to find a proxy for target https://h/c/b.zip?sv=1 using PAC Url: direct\n"
      L"0 SystemProxy::ResolvePacUrl(): Ran PAC file. Proxy access type: 1\n"
      L"1 SystemProxy::DetectWpad(): WinHttpDetectAutoProxyConfigUrl failed: WinHTTP message 12180.\n"
      L"1 SystemProxy::ResolvePacUrl(): Attempting to find a proxy for target https://h/c/b.zip?sv=1 using PAC Url: c\n"
      L"0 SystemProxy::ResolvePacUrl(): Ran PAC file. Proxy access type: 3\n"
      L"1 SystemProxy::ResolvePacUrl(): WinHttpGetProxyForUrl -- Found proxy via PAC URL: via c\n"
      L"1 SystemProxy::ChooseProxyServer(): Found proxy via IE automatic proxy: via c\n");
  const Choice none(L"a,,,,,", "none", L"");
  EXPECT_TRUE(none.has(L"1 SystemProxy::ResolvePacUrl(): No PAC URL or Target URL provded."));
  EXPECT_TRUE(none.has(
      L"1 SystemProxy::GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration -- Found system proxy: (none)\nBypass: winhttp bypass\n1 SystemProxy::ChooseProxyServer(): No proxy found, using default settings."));
}

TEST(SystemProxyTest, EntriesThatServeTheTarget) {
  struct Row {
    const wchar_t *target, *list, *entries;
  };
  const wchar_t* const each = L"http=a:80;https=b;socks=c:1080;d http=e";
  std::wstring hostile(1 << 20, L';');  // takes minutes in any way that is not linear
  for (int i = 0; i < 1 << 18; ++i) {
    hostile += L"http= ";
  }
  const Row rows[] = {
      {L"http://h", each, L"http://a:80;http://e;http://d"},
      {L"https://h", each, L"http://b;http://d"},
      {L"h.example/p", each, L"http://b;http://d"},
      {L"HTTPS://h", each, L"http://d"},  // not known: exact
      {L"https://h h", each, L""},
      {L"https://h", L" a\tb\rc\nd;;e ", L"http://a;http://b;http://c;http://d;http://e"},
      {L"https://h", L"https://a https=x://b HTTPS=c", L"x://b;https://a;http://HTTPS=c"},
      {L"https://h", L"https= https=;http=http=;", L""},
      {L"https://h", hostile.c_str(), L""},
  };
  sim::Windows windows;
  sim::LogCapture log(windows);
  for (const Row& row : rows) {
    EXPECT_EQ(proxy_list::join(SystemProxy::ExtractAllWinHTTPProxies(row.target, row.list)), row.entries) << row.target;
  }
  EXPECT_TRUE(log.has(CORE::kError,
                      L"SystemProxy::ExtractAllWinHTTPProxies(): Unknown scheme: HTTPS for target URL: "
                      L"HTTPS://h"));
  EXPECT_EQ(proxy_list::parse(each).socks, std::vector<std::wstring>({L"c:1080"})) << "they get no scheme";
}

}  // namespace
