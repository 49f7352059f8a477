#include "http/system_proxy.h"

#include "core/text.h"
#include "http/proxy_list.h"
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
  return chosen.servers + L"|" + chosen.bypass;
}

TEST(SystemProxyTest, TheFirstSourceWithAProxyWins) {
  struct Row {
    const wchar_t *sources, *result;
    const char* line;              ///< of the class's log
    const char* failing = "none";  ///< a platform call
  };
  const Row rows[] = {
      {L"a,b,c,https=m;n,i,w", L"via a|", "ChooseProxyServer(): Found proxy via manual PAC URL: via a"},
      {L"gone,b,c,m,i,w", L"via b|",
       "ResolvePacUrl(): Unable to find proxy with given pac file: 0x2f87 (WinHTTP message 12167.)"},
      {L",b,c,m,i,w", L"via b|", "ChooseProxyServer(): Found proxy via WPAD PAC URL: via b"},
      {L",b,c,m,i,w", L"via c|", "DetectWpad(): WinHttpDetectAutoProxyConfigUrl failed: WinHTTP message 5.",
       "WinHttpDetectAutoProxyConfigUrl"},
      {L"direct,b,,,,", L"via b|", "ResolvePacUrl(): Ran PAC file. Proxy access type: 1"},
      {L",,c,,,", L"via c|",
       "ResolvePacUrl(): Attempting to find a proxy for target https://h/c/b.zip?sv=1 using PAC Url: c"},
      {L",,c,,,", L"via c|", "ResolvePacUrl(): WinHttpGetProxyForUrl -- Found proxy via PAC URL: via c"},
      {L",,,,p,", L"p|ie bypass",
       "Found IE proxy settings. auto-detect=1,auto-config-url=,proxy=p,proxyBypass=ie bypass"},
      {L"direct,gone,c,m,i,w", L"via c|", "ChooseProxyServer(): Found proxy via IE automatic proxy: via c"},
      {L"a,b,c,https=m;n,i,w", L"http://m;http://n|manual bypass",
       "ChooseProxyServer(): Using sanitized manual proxy: http://m;http://n", "WinHttpGetProxyForUrl"},
      {L"a,b,c,m,i,w", L"http://m|manual bypass", "ResolvePacUrl(): WinHttpOpen failed: Message 5.", "WinHttpOpen"},
      {L",,,http=m,i,w", L"|", "ChooseProxyServer(): Unable to sanitize manual proxy list."},
      {L",,,m,i,w", L"|", "ExtractAllWinHTTPProxies(): Unable to parse target URL: https://h/c/b.zip?sv=1",
       "InternetCrackUrlW"},
      {L",,,,http=i x,w", L"http=i x|ie bypass", "ChooseProxyServer(): Found proxy via IE named proxy."},
      {L",,c,,i,v http=w", L"http://v|winhttp bypass",
       "IEProxyConfig::init(): Unable to find IE Proxy Config: Message 5.", "WinHttpGetIEProxyConfigForCurrentUser"},
      {L",,,,,v http=w", L"http://v|winhttp bypass", "ChooseProxyServer(): Using sanitized WinHTTP proxy: http://v"},
      {L",,,,,", L"|",
       "GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration -- Found system proxy: (none)\nBypass: winhttp bypass"},
      {L",,,,,", L"|", "ResolvePacUrl(): No PAC URL or Target URL provded."},
      {L",,,,,", L"|", "ChooseProxyServer(): No proxy found, using default settings."},
      {L",,,,,http=w", L"|", "ChooseProxyServer(): Unable to sanitize WinHTTP proxy list."},
      {L",,,,,w", L"|", "GetWinHttpProxy(): WinHttpGetDefaultProxyConfiguration failed: Message 5.",
       "WinHttpGetDefaultProxyConfiguration"},
  };
  for (const Row& row : rows) {
    World world;
    world.windows.faults.failAll(row.failing, 5);
    EXPECT_EQ(choose(world, row.sources), row.result) << row.line;
    EXPECT_NE(world.log.text().find(row.line + std::string("\n")), std::string::npos) << world.log.text();
  }
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
      {L"h.example/p", each, L"http://b;http://d"},
      {L"HTTPS://h", each, L"http://d"},  // not known: exact
      {L"https://h h", each, L""},
      {L"h.example//p", each, L""},  // "//" anywhere counts as a scheme
      {L"https://h", L" a\tb\rc\nd;;e ", L"http://a;http://b;http://c;http://d;http://e"},
      {L"https://h", L"https://a https=x://b HTTPS=c", L"x://b;https://a;http://HTTPS=c"},
      {L"https://h", hostile.c_str(), L""},
  };
  World world;
  for (const Row& row : rows) {
    EXPECT_EQ(proxy_list::join(SystemProxy::ExtractAllWinHTTPProxies(row.target, row.list)), row.entries) << row.target;
  }
  for (const wchar_t* const text :
       {L"SystemProxy::ExtractAllWinHTTPProxies(): Unknown scheme: HTTPS for target URL: HTTPS://h",
        L"util::WinInet::CrackUrl(): Spaces are not supported.",
        L"util::WinInet::CrackUrl(): InternetCrackUrl failed. Error: Message 12006.."}) {
    EXPECT_TRUE(world.log.has(CORE::kError, text)) << world.log.text();
  }
  EXPECT_EQ(proxy_list::parse(each).socks, std::vector<std::wstring>({L"c:1080"})) << "they get no scheme";
}

}  // namespace
