#include "http/proxy/system_proxy.h"

#include "tests/unit/http/http_test.h"

namespace {

const wchar_t kTarget[] = L"https://h/c/b.zip?sv=1";

/// One choice where `sources` are to be found: manual PAC URL, WPAD's, the user's; manual list, the user's, WinHTTP's,
/// with "," between them. The PAC files "a", "b" and "c" name the proxy "via <file>", "direct" names none.
std::wstring choose(World& world, const wchar_t* sources) {
  const auto source = CORE::splitText(sources, L',');
  auto& proxies = world.windows.winHttp.proxies;
  proxies.wpadUrl = source[1];
  proxies.ie = {true, source[2], source[4], L"ie bypass"};
  proxies.winHttpDefault = {0, source[5], L"winhttp bypass"};
  for (const std::wstring file : {L"a", L"b", L"c", L"direct"}) {
    proxies.pacFiles[file] = [&, file](const std::wstring& url) {
      EXPECT_EQ(url, kTarget);
      return file == L"direct" ? L"" : L"via " + file;
    };
  }
  ChosenProxy chosen{L"old", L"old"};
  EXPECT_FALSE(SystemProxy::ResolvePacUrl(L"a", L"", chosen.servers, L"agent"));
  SystemProxy::ChooseProxyServer(chosen, kTarget, source[0], source[3], L"manual bypass");
  for (const auto& call : proxies.pacCalls) {
    EXPECT_EQ(call, std::tuple(L"Meridon Agent", 1u, 0x10000000u, true));
  }
  return chosen.servers + L"|" + chosen.bypass;
}

// How a list is taken apart: see the fuzz target.
TEST(SystemProxyTest, TheFirstSourceWithAProxyWins) {
  struct Row {
    const wchar_t *sources, *result, *lines;
    const char* failing = "none";  ///< a platform call
  };
  const Row rows[] = {
      {L"a,b,c,https=m;n,i,w", L"via a|", L"ChooseProxyServer(): Found proxy via manual PAC URL: via a"},
      {L"gone,b,c,m,i,w", L"via b|",
       L"ResolvePacUrl(): Unable to find proxy with given pac file: 0x2f87 (WinHTTP message 12167.)|"
       L"ChooseProxyServer(): Found proxy via WPAD PAC URL: via b"},
      {L"direct,gone,c,m,i,w", L"via c|",
       L"ResolvePacUrl(): Ran PAC file. Proxy access type: 1|"
       L"Attempting to find a proxy for target https://h/c/b.zip?sv=1 using PAC Url: c|"
       L"ResolvePacUrl(): WinHttpGetProxyForUrl -- Found proxy via PAC URL: via c|"
       L"ChooseProxyServer(): Found proxy via IE automatic proxy: via c"},
      {L"a,b,c,https=m;n,i,w", L"http://m;http://n|manual bypass",
       L"ChooseProxyServer(): Using sanitized manual proxy: http://m;http://n", "WinHttpGetProxyForUrl"},
      {L",,,socks=s:1 http=x ftp=f HTTPS=https://m/ n/,i,w", L"https://m;http://n|manual bypass",
       L"Using sanitized manual proxy"},
      {L",,,http=m,i,w", L"|", L"ChooseProxyServer(): Unable to sanitize manual proxy list."},
      {L",,,,http=i x,w", L"http=i x|ie bypass",
       L"Found IE proxy settings. auto-detect=1,auto-config-url=,proxy=http=i x,proxyBypass=ie bypass|"
       L"ChooseProxyServer(): Found proxy via IE named proxy."},
      {L",,c,,i,v http=w", L"http://v|winhttp bypass",
       L"IEProxyConfig::init(): Unable to find IE Proxy Config: Message 5.|"
       L"ChooseProxyServer(): Using sanitized WinHTTP proxy: http://v",
       "WinHttpGetIEProxyConfigForCurrentUser"},
      {L",,,,,", L"|",
       L"ResolvePacUrl(): No PAC URL or Target URL provded.|"
       L"DetectWpad(): WinHttpDetectAutoProxyConfigUrl failed: 0x2f94 (WinHTTP message 12180.)|"
       L"GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration -- Found system proxy: (none)\nBypass: winhttp bypass|"
       L"ChooseProxyServer(): No proxy found, using default settings."},
      {L",,,,,http=w", L"|", L"ChooseProxyServer(): Unable to sanitize WinHTTP proxy list."},
  };
  for (const Row& row : rows) {
    World world;
    world.windows.faults.failAll(row.failing, 5);
    SCOPED_TRACE(CORE::toUtf8Lossy(row.sources));
    EXPECT_EQ(choose(world, row.sources), row.result);
    EXPECT_TRUE(world.logged(row.lines)) << world.log.text();
  }
  World world;
  using Entries = std::vector<std::wstring>;
  EXPECT_EQ(SystemProxy::ExtractAllWinHTTPProxies(L"h.example", L"http=a https=b"), Entries({L"http://b"}));
  EXPECT_EQ(SystemProxy::ExtractAllWinHTTPProxies(L"HTTPS://h", L"https=a b"), Entries({L"http://b"})) << "exact";
  EXPECT_EQ(SystemProxy::ExtractAllWinHTTPProxies(L"https://h h", L"b"), Entries());
}

}  // namespace
