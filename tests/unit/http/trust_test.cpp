#include <algorithm>

#include "core/text/text.h"
#include "http/trust/win_cert_implementation.h"
#include "tests/unit/http/http_test.h"

// Which servers a request goes to: the preflight, the check inside the sending-request notification, pins, revocation.

namespace {

std::string crlOf(platform::FileTime nextUpdate, const std::vector<std::string>& revoked = {"another"}) {
  return sim::Certificates::crlText(nextUpdate, revoked);
}

/// A request that checks certificates, its server, and a server of CRLs at crl.example.
struct TrustWorld : World {
  explicit TrustWorld(sim::Delivery delivery = sim::Delivery::kWorker) : World(delivery) {
    request->checksCertificates = true;
    listed({L"http://crl.example/a"});
    windows.winHttp.onHandshake(
        [this](const sim::HttpExchange& exchange) { return exchange.index > 0 && live ? *live : chain; });
    windows.winHttp.onRequest([this](const sim::HttpExchange& exchange) {
      if (exchange.host != L"crl.example") {
        return reply;
      }
      sim::HttpReply answer;
      answer.body = crls[exchange.path];
      answer.status = answer.body.empty() ? 404 : 200;
      answer.hold = answer.body == "held";
      if (exchange.path == L"/moved") {
        answer.status = 302;
        answer.location = L"http://crl.example/a";
      }
      return answer;
    });
  }

  /// The leaf's distribution points.
  void listed(std::vector<std::wstring> urls) { chain.certificates[0].crlUrls = std::move(urls); }
  std::string pinOf(const char* der) {
    return WinCertImplementation::GetThumbprint(windows.certificates.certificateOf({der}).get());
  }
  void pin(const char* der) { request->addThumbprint(pinOf(der)); }
  /// The proxy wants this password, and the request has "swordfish".
  void proxyWants(const wchar_t* password) {
    windows.winHttp.proxyCredentials = {L"user", password};
    request->setProxyCredentials("user", L"swordfish");
  }
  /// Runs the request to its end. True when it reached the server, which the probe must never do.
  bool reaches() {
    const bool started = get();
    waitUntilIdle();
    EXPECT_EQ(completions, started ? 1 : 0);
    const auto all = windows.winHttp.requests();
    return std::any_of(all.begin(), all.end(),
                       [](const auto& exchange) { return exchange.reached && exchange.host == L"host.example"; });
  }

  sim::ServerChain chain{{{"leaf"}, {"issuer"}, {"root"}}};
  std::optional<sim::ServerChain> live;  ///< shown from the second request on
  platform::FileTime now = windows.kernel.now();
  std::map<std::wstring, std::string> crls{{L"/a", crlOf(now)}, {L"/b", "held"}, {L"/old", crlOf(now - 1)}};
};

using W = TrustWorld;
using Calls = std::vector<sim::Certificates::ChainCall>;
enum Reach { kReaches, kStops, kNeverReaches };  // the last: not even when a platform call fails
enum Setting : unsigned { kNone, kAsks = 1, kProxy = 2, kPrivateRoot = 4, kKillswitch = 8 };  // kAsks: for revocation

struct Situation {
  const char* name;
  Reach reach;
  std::size_t requests;  ///< of all, probe and CRLs included
  unsigned settings;
  const wchar_t* lines;
  void (*prepare)(W&) = [](W&) {};

  void apply(W& world) const {
    if ((settings & kAsks) != 0) {
      world.request->enableRevocationCheck();
    }
    world.request->setProxy((settings & kProxy) != 0 ? "proxy:8080" : "");
    world.chain.trustedRoot = (settings & kPrivateRoot) == 0;
    if ((settings & kKillswitch) != 0) {
      world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Node Manager\\DisableManualCRLCheck", L"true");
    }
    prepare(world);
  }
};

const Situation kSituations[] = {
    {"ignoring all errors", kReaches, 1, kAsks | kProxy, L"", [](W& w) { w.request->ignoreCertErrors(); }},
    {"automatic check", kReaches, 2, kAsks,
     L"Sending out preflight request|aborting probe before any|Preflight request successfully obtained|"
     L"Performing automatic CRL check|CRL check for preflight's certificates completed"},
    {"automatic check, revoked", kNeverReaches, 1, kAsks,
     L"Revocation check failed. Status: 0x4 Info: 0x100|Pre-flight certificate verification failed for https://",
     [](W& w) { w.chain.revocationError = 4, w.chain.revocationInfo = 0x100; }},
    {"manual check through the proxy", kReaches, 3, kAsks | kProxy,
     L"Performing manual CRL check|Using proxy server: http://proxy:8080|is NOT revoked by CRL http://crl.example/a|"
     L"No CRL URLs found for certificate with subject name: CN=issuer|Preflight thumbprints matched all live certs"},
    {"manual check, revoked", kNeverReaches, 2, kAsks | kProxy,
     L"is REVOKED by CRL http://crl.example/a|Preflight: manual CRL check failed",
     [](W& w) {
       w.chain.revocationError = 4;  // WinHTTP and the platform know it as well
       w.crls[L"/a"] = crlOf(w.now, {"another", "leaf"});
     }},
    {"the first CRLs cannot be used, each for its reason", kReaches, 7, kAsks | kProxy,
     L"CRL request failed for ldap:///x|Unable to create CRL context for http://crl.example/text: |"
     L"CRL is expired. Current time: 2026-11-13,04:13:48, Next update: 2026-11-13,04:13:48|"
     L"CRL request failed for http://crl.example/b|is NOT revoked by CRL http://crl.example/c",
     [](W& w) {
       const std::wstring host = L"http://crl.example/";
       w.listed({host + L"none", L"ldap:///x", host + L"text", host + L"old", host + L"b", host + L"c"});
       w.crls[L"/text"] = "no CRL";
       w.crls[L"/c"] = crlOf(~0ull >> 1);  // simulated time has passed in the wait for /b
     }},
    {"every CRL cannot be used", kStops, 3, kAsks | kProxy,
     L"Next update: 1601-01-01,00:00:00|CRL http://crl.example/a is EXPIRED|Unable to perform any CRL checks for ",
     [](W& w) {
       w.crls[L"/a"] = crlOf(0);
       w.listed({L"http://crl.example/a", L"http://crl.example/none"});
     }},
    {"killswitch", kReaches, 2, kAsks | kProxy | kKillswitch,
     L"Manual CRL check is disabled by killswitch|Performing automatic CRL check|matched all live certs"},
    {"private root that is not sent, pin of the leaf", kNeverReaches, 1, kPrivateRoot, L"cert chain. Error: 0x800b010a",
     [](W& w) { w.chain.partial = true, w.pin("leaf"); }},
    {"private root, pin of the root", kReaches, 3, kAsks | kPrivateRoot,
     L"Performing manual CRL check|thumbprintMatch(): Server Thumbprint: |Matched thumbprint: ",
     [](W& w) {
       w.request->setThumbprints({"AB:01", w.pinOf("root")});
     }},
    {"private root, killswitch", kStops, 1, kAsks | kPrivateRoot | kKillswitch,
     L"Revocation check failed. Status: 0x20 Info: 0x0", [](W& w) { w.pin("root"); }},
    {"private root, lower-case pin", kNeverReaches, 2, kAsks | kPrivateRoot,
     L"thumbprintMatch(): Thumbprints did not match.|preflightCertVerification(): Thumbprint verification failed.",
     [](W& w) { w.request->addThumbprint(CORE::loweredNarrow(w.pinOf("leaf"))); }},
    {"private root, no pin", kNeverReaches, 2, kAsks | kProxy | kPrivateRoot,
     L"failed to obtain server certificates. Will perform an in-callback check instead.|"
     L"Certificate Authority is unrecognized|WinHttpSendRequest failed for url "},
    {"pin of the issuer without revocation", kReaches, 1, kPrivateRoot, L"Matched thumbprint: ",
     [](W& w) { w.pin("issuer"); }},
    {"wrong pin without revocation", kNeverReaches, 1, kPrivateRoot,
     L"SendingRequest(): Thumbprint verification failed.", [](W& w) { w.pin("another"); }},
    {"wrong pin, but a trusted root", kReaches, 1, kNone, L"", [](W& w) { w.pin("another"); }},
    {"another name, ignored", kReaches, 3, kAsks | kProxy, L"matched all live certs",
     [](W& w) { w.chain.nameMatches = false, w.request->ignoreCertNameMismatch(); }},
    {"the live chain has one more", kStops, 3, kAsks | kProxy,
     L"Preflight thumbprint matched live cert|Preflight thumbprint did NOT match live cert",
     [](W& w) { (w.live = w.chain)->certificates.push_back({"another"}); }},
    {"the probe captures nothing", kReaches, 2, kAsks | kProxy,
     L"Certificate is expired|Will perform an in-callback check instead.",
     [](W& w) { w.live = w.chain, w.chain.policyStatus = 0x800B0101; }},
    {"the probe captures nothing, revoked", kNeverReaches, 2, kAsks | kProxy,
     L"SendingRequest(): Certificate revocation check failed.",
     [](W& w) { w.chain.revocationError = 4, w.live = w.chain, w.chain.policyStatus = 0x800B0101; }},
    {"the probe never ends", kReaches, 2, kAsks | kProxy,
     L"performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1) failed. Wait result=258. "
     L"LastError=Message 0..|"
     L"Will perform an in-callback check instead.",
     [](W& w) { w.live = w.chain, w.chain.silent = true; }},
    {"a CRL that has moved", kReaches, 4, kAsks | kProxy, L"is NOT revoked by CRL http://crl.example/moved",
     [](W& w) { w.listed({L"http://crl.example/moved"}); }},
    {"the proxy wants credentials before there is a certificate", kStops, 2, kAsks | kProxy,
     L"GetServerCert(): Unable to query cert ctx, error 0x2ef3 (|"
     L"SendingRequest(): Unable to obtain server certificate",
     [](W& w) { w.proxyWants(L"swordfish"); }},
    {"the proxy wants credentials, nothing is checked", kReaches, 1, kProxy, L"",
     [](W& w) { w.proxyWants(L"swordfish"); }},
    {"the proxy wants others, nothing is checked", kStops, 1, kProxy, L"HTTP status code received: 407",
     [](W& w) { w.proxyWants(L"another"); }},
};

TEST(TrustTest, Situations) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kMixed}) {
    for (const Situation& situation : kSituations) {
      SCOPED_TRACE(situation.name);
      TrustWorld world(delivery);
      situation.apply(world);
      EXPECT_EQ(world.reaches(), situation.reach == kReaches);
      EXPECT_EQ(world.request->isSuccess() && world.body == world.reply.body, situation.reach == kReaches);
      EXPECT_EQ(world.windows.winHttp.requests().size(), situation.requests);
      EXPECT_TRUE(world.logged(situation.lines)) << world.log.text();
      EXPECT_EQ(world.log.count(L"swordfish"), 0U);
    }
  }
}

// Whatever call fails, no data reaches a server that must be refused. When another server is not reached, the log says
// why. Two calls are left out: a certificate whose distribution points cannot be read counts as one that names none.
TEST(TrustTest, EachCallFailingInTurnLetsNobodyThrough) {
  for (const Situation& situation : kSituations) {
    const bool reachesPinned = situation.reach == kReaches && situation.settings == (kAsks | kPrivateRoot);
    std::size_t calls = reachesPinned || situation.reach == kNeverReaches ? 1 : 0;
    for (std::size_t k = 1; k <= calls; ++k) {
      TrustWorld world(sim::Delivery::kInline);
      situation.apply(world);
      const std::size_t before = world.windows.faults.calls().size();
      world.windows.faults.failCall(before + k, platform::kErrorNotEnoughMemory);
      const bool reached = world.reaches();
      const auto made = world.windows.faults.calls();
      const std::string failed(before + k <= made.size() ? made[before + k - 1].name : "");
      SCOPED_TRACE(situation.name + (" " + failed));
      if (situation.reach == kReaches) {
        EXPECT_TRUE(reached || failed == "WriteFile" || !world.errors().empty());
      } else {
        EXPECT_TRUE(!reached || failed == "CertFindExtension" || failed == "CryptDecodeObjectEx");
      }
      calls = std::max(calls, made.size() - before);
    }
  }
}

TEST(TrustTest, ACheckThatNeverCameIsNoCheck) {
  const std::tuple<const char*, void (*)(W&), std::size_t> rows[] = {
      {"a pin", [](W& w) { w.pin("leaf"); }, 0},
      {"revocation through a proxy", [](W& w) { w.request->enableRevocationCheck(), w.request->setProxy("p:1"); }, 0},
      {"a pin, but all errors ignored", [](W& w) { w.pin("leaf"), w.request->ignoreCertErrors(); }, 1},
  };
  for (const auto& [name, demand, writes] : rows) {
    SCOPED_TRACE(name);
    TrustWorld world;
    world.windows.winHttp.reportsSending = false;
    demand(world);
    EXPECT_TRUE(world.putFile());
    world.waitUntilIdle();
    EXPECT_EQ(world.completions, 1);
    EXPECT_EQ(world.exchange().writes.size(), writes);
    EXPECT_EQ(world.request->isSuccess(), writes != 0);
    EXPECT_EQ(world.log.has(CORE::kError,
                            L"WinHttpRequest::RequestCallback(): The server's certificates were not "
                            L"checked before sending to https://host.example/c/b.zip?sv=1"),
              writes == 0);
  }
}

TEST(TrustTest, NoOtherServerAnswersInItsPlace) {
  struct Row {
    const char* name;
    void (*demand)(W&);
    bool (*run)(W&) = [](W& w) { return w.get(); };
  };
  const Row rows[] = {
      {"a pin", [](W& w) { w.pin("leaf"); }},
      {"revocation", [](W& w) { w.request->enableRevocationCheck(); }},
      {"a body", [](W&) {}, [](W& w) { return w.request->putStringAsync(kZip, kUrl, "in", w.completion()); }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TrustWorld world;
    world.reply.status = 307;
    world.reply.location = L"https://crl.example/a";
    row.demand(world);
    EXPECT_TRUE(row.run(world));
    world.waitUntilIdle();
    EXPECT_EQ(world.request->getResponseCode(), 307U);
    EXPECT_EQ(world.exchange().host, L"host.example");
    EXPECT_EQ(world.body, "an answer");
    EXPECT_EQ(world.errors(), Errors());
  }
}

TEST(TrustTest, WhatTheProbeTakesAlongAndWhatChainsCost) {
  TrustWorld world;
  world.windows.winHttp.knowsChainOption = false;
  world.request->setProxy("proxy:8080");
  world.request->setProxyBypass("*.local");
  world.request->setProxyCredentials("us\xC3\xA9r", L"swordfish");
  world.request->setTimeoutsMs(1, 2, 3, 4);
  world.request->ignoreCertNameMismatch();
  world.request->addThumbprint("AB:01");
  world.request->enableRevocationCheck();
  EXPECT_TRUE(world.reaches());
  EXPECT_TRUE(world.logged(L"GetCertChain(): Building the certificate chain using the system store"));
  EXPECT_EQ(world.errors(), Errors()) << "the probe's abort is none";
  const auto requests = world.windows.winHttp.requests();
  ASSERT_EQ(requests.size(), 3U);
  const auto &probe = requests[0], &crl = requests[1], &real = requests[2];
  const std::string proxied = " 3http://proxy:8080,*.local ";
  EXPECT_EQ(settingsOf(probe), "GET host.example:443/c/b.zip?sv=1 800100 1100 0 97f0c10" + proxied);
  EXPECT_EQ(settingsOf(crl), "GET crl.example:80/a 100 0 0 97f0c00" + proxied);
  EXPECT_FALSE(probe.reached);
  EXPECT_EQ(probe.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(real.timeouts, probe.timeouts);
  for (const auto& request : requests) {
    EXPECT_EQ(request.textOptions.at(0x1002), L"us\u00E9r");
    EXPECT_EQ(request.textOptions.at(0x1003), L"swordfish");
  }
  EXPECT_EQ(world.windows.certificates.chainsBuilt(), (Calls{{4, 3, 0}, {4, 3, 0}})) << "nothing from the network";
  EXPECT_EQ(world.windows.certificates.serverNames(), std::vector<std::wstring>({L"host.example"}));
}

TEST(TrustTest, EachRetrievalOfTheAutomaticCheckHasTheTimeOfAReceive) {
  TrustWorld world;
  world.request->enableRevocationCheck();
  EXPECT_TRUE(world.reaches());
  EXPECT_EQ(world.windows.certificates.chainsBuilt(), (Calls{{0x20000001, 3, 30000}}));
}

}  // namespace
