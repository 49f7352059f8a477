#include <algorithm>

#include "core/text.h"
#include "http/win_cert_implementation.h"
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
      return answer;
    });
  }

  /// The leaf's distribution points.
  void listed(std::vector<std::wstring> urls) { chain.certificates[0].crlUrls = std::move(urls); }
  std::string pinOf(const char* der) {
    return WinCertImplementation::GetThumbprint(windows.certificates.certificateOf({der}).get());
  }
  void pin(const char* der) { request->addThumbprint(pinOf(der)); }
  /// Runs the request to its end. True when it reached the server (of which the probe must see nothing).
  bool reaches() {
    const bool started = get();
    settle();
    EXPECT_EQ(completions, started ? 1 : 0);
    const auto all = windows.winHttp.requests();
    const bool reached = std::any_of(all.begin(), all.end(), [](const auto& exchange) {
      return exchange.reached && exchange.host == L"host.example";
    });
    EXPECT_EQ(reached, request->getResponseCode() == 200 && body == reply.body);
    return reached;
  }
  /// Whether the log has records that contain these texts, separated by "|", in this order.
  bool tells(const wchar_t* texts) {
    const auto wanted = CORE::splitText(texts, L'|');
    auto next = wanted.begin();
    for (const auto& line : log.lines()) {
      next += next != wanted.end() && line.message.find(*next) != std::wstring::npos ? 1 : 0;
    }
    return *texts == 0 || next == wanted.end();
  }

  sim::ServerChain chain{{{"leaf"}, {"issuer"}, {"root"}}};
  std::optional<sim::ServerChain> live;  ///< shown from the second request on
  platform::FileTime now = windows.kernel.now();
  std::map<std::wstring, std::string> crls{{L"/a", crlOf(now)}, {L"/b", "held"}, {L"/old", crlOf(now - 1)}};
};

using W = TrustWorld;

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
    {"nothing asked", kReaches, 1, kNone, L""},
    {"ignoring all errors", kReaches, 1, kAsks | kProxy, L"", [](W& w) { w.request->ignoreCertErrors(); }},
    {"automatic check", kReaches, 2, kAsks,
     L"Sending out preflight request|Skipping preflight certificate verification|aborting probe before any|"
     L"Preflight request successfully obtained|Performing automatic CRL check|"
     L"CRL check for preflight's certificates completed"},
    {"automatic check, revoked", kNeverReaches, 1, kAsks,
     L"automaticCRLCheck(): Revocation check failed. Status: 0x4 Info: 0x100|Preflight: automatic CRL check failed|"
     L"performAsync(): Pre-flight certificate verification failed for https://host.example/c/b.zip?sv=1",
     [](W& w) { w.chain.revocationError = 4, w.chain.revocationInfo = 0x100; }},
    {"manual check through the proxy", kReaches, 3, kAsks | kProxy,
     L"Performing manual CRL check|CRL URL: http://crl.example/a|Using proxy server: http://proxy:8080|"
     L"is NOT revoked by CRL http://crl.example/a|No CRL URLs found for certificate with subject name: CN=issuer|"
     L"Preflight thumbprint matched live cert|Preflight thumbprints matched all live certs"},
    {"manual check, revoked", kNeverReaches, 2, kAsks | kProxy,
     L"is REVOKED by CRL http://crl.example/a|Preflight: manual CRL check failed",
     [](W& w) {
       w.chain.revocationError = 4;  // WinHTTP and the platform know it as well
       w.crls[L"/a"] = crlOf(w.now, {"another", "leaf"});
     }},
    {"the first CRLs cannot be used, each for its reason", kReaches, 7, kAsks | kProxy,
     L"CRL request failed for http://crl.example/none|CRL request failed for ldap:///x|"
     L"Unable to create CRL context for http://crl.example/text: |"
     L"CRL is expired. Current time: 2026-11-13,04:13:48, Next update: 2026-11-13,04:13:48|"
     L"CRL http://crl.example/old is EXPIRED|CRL request failed for http://crl.example/b|"
     L"is NOT revoked by CRL http://crl.example/c",
     [](W& w) {
       const std::wstring host = L"http://crl.example/";
       w.listed({host + L"none", L"ldap:///x", host + L"text", host + L"old", host + L"b", host + L"c"});
       w.crls[L"/text"] = "no CRL";
       w.crls[L"/c"] = crlOf(~0ull >> 1);  // the wait for the one that never came took its time
     }},
    {"every CRL cannot be used", kStops, 3, kAsks | kProxy,
     L"Next update: 1601-01-01,00:00:00|CRL http://crl.example/a is EXPIRED|"
     L"Unable to perform any CRL checks for certificate with thumbprint ",
     [](W& w) {
       w.crls[L"/a"] = crlOf(0);
       w.listed({L"http://crl.example/a", L"http://crl.example/none"});
     }},
    {"killswitch", kReaches, 2, kAsks | kProxy | kKillswitch,
     L"Manual CRL check is disabled by killswitch|Performing automatic CRL check|matched all live certs"},
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
     [](W& w) {
       w.chain.revocationError = 4;
       w.live = w.chain;
       w.chain.policyStatus = 0x800B0101;
     }},
    {"the probe never ends", kReaches, 2, kAsks | kProxy,
     L"performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1) failed.|"
     L"Will perform an in-callback check instead.",
     [](W& w) { w.live = w.chain, w.chain.silent = true; }},
    {"the proxy's credentials are wrong", kStops, 2, kAsks | kProxy,
     L"GetServerCert(): Unable to query cert ctx, error 0x2ef3 (|"
     L"SendingRequest(): Unable to obtain server certificate",
     [](W& w) {
       w.windows.winHttp.proxyCredentials = {L"user", L"another"};
       w.request->setProxyCredentials("user", L"swordfish");
     }},
};

TEST(TrustTest, Situations) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kMixed}) {
    for (const Situation& situation : kSituations) {
      SCOPED_TRACE(situation.name);
      TrustWorld world(delivery);
      situation.apply(world);
      EXPECT_EQ(world.reaches(), situation.reach == kReaches);
      EXPECT_EQ(world.windows.winHttp.requests().size(), situation.requests);
      EXPECT_TRUE(world.tells(situation.lines)) << world.log.text();
      EXPECT_EQ(world.log.count(L"swordfish"), 0U);
    }
  }
}

// Whatever call fails, nobody gets a byte who must not have one. A certificate whose distribution points cannot be read
// counts as one that names none, so these two calls are left out.
TEST(TrustTest, EachCallFailingInTurnLetsNobodyThrough) {
  for (const Situation& situation : kSituations) {
    std::size_t calls = situation.reach == kNeverReaches ? 1 : 0;
    for (std::size_t k = 1; k <= calls; ++k) {
      SCOPED_TRACE(situation.name);
      TrustWorld world(sim::Delivery::kInline);
      situation.apply(world);
      const std::size_t before = world.windows.faults.calls().size();
      world.windows.faults.failCall(before + k, platform::kErrorNotEnoughMemory);
      const bool reached = world.reaches();
      const auto made = world.windows.faults.calls();
      const std::string failed = before + k <= made.size() ? made[before + k - 1] : "";
      EXPECT_TRUE(!reached || failed == "CertFindExtension" || failed == "CryptDecodeObjectEx") << failed;
      calls = std::max(calls, made.size() - before);
    }
  }
}

TEST(TrustTest, WhatTheProbeTakesAlongAndWhatChainsCost) {
  TrustWorld world;
  world.windows.winHttp.proxyCredentials = {L"us\u00E9r", L"swordfish"};
  world.windows.winHttp.knowsChainOption = false;
  world.request->setProxy("proxy:8080");
  world.request->setProxyBypass("*.local");
  world.request->setProxyCredentials("us\xC3\xA9r", L"swordfish");
  world.request->setTimeoutsMs(1, 2, 3, 4);
  world.request->ignoreCertNameMismatch();
  world.request->addThumbprint("AB:01");
  world.request->enableRevocationCheck();
  EXPECT_TRUE(world.reaches());
  EXPECT_TRUE(world.tells(L"GetCertChain(): Building the certificate chain using the system store"));
  const auto requests = world.windows.winHttp.requests();
  ASSERT_EQ(requests.size(), 3U);
  const auto &probe = requests[0], &crl = requests[1], &real = requests[2];
  EXPECT_EQ(probe.verb, L"GET");
  EXPECT_FALSE(probe.reached);
  EXPECT_EQ(probe.path, real.path);
  EXPECT_EQ(probe.securityFlags(), 0x1100U);
  EXPECT_EQ(probe.callbackMask, 0x097F0C10U);
  EXPECT_EQ(probe.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(real.timeouts, probe.timeouts);
  EXPECT_EQ(crl.callbackMask, 0x097F0C00U);
  EXPECT_EQ(crl.requestFlags, 0x100U);
  for (const auto& request : requests) {
    EXPECT_EQ(request.accessType, 3U);
    EXPECT_EQ(request.proxy, L"http://proxy:8080");
    EXPECT_EQ(request.bypass, L"*.local");
    EXPECT_EQ(request.textOptions.at(0x1002), L"us\u00E9r");
    EXPECT_EQ(request.textOptions.at(0x1003), L"swordfish");
  }
  EXPECT_EQ(world.windows.certificates.chainFlags(), (std::vector<std::uint32_t>{4, 4})) << "nothing from the network";
  EXPECT_EQ(world.windows.certificates.serverNames(), std::vector<std::wstring>({L"host.example"}));
}

TEST(TrustTest, EveryPolicyStatus) {
  struct Row {
    bool trusted, nameMatches;
    std::uint32_t status;
    bool ignoreName;
    const wchar_t* refusal;
  };
  const Row rows[] = {
      {true, true, 0, false, L""},
      {false, true, 0, false, L""},
      {true, false, 0, false, L"Found a CN/SAN mismatch"},
      {true, false, 0, true, L""},
      {false, false, 0, false, L"Found a CN/SAN mismatch"},
      {false, true, 0x800B0101, false, L"Unable to verify cert chain. Error: 0x800b0101"},
      {true, true, platform::kCertECnNoMatch, true, L""},
  };
  for (const Row& row : rows) {
    TrustWorld world;
    const sim::ServerChain chain{{{"leaf"}, {"root"}}, row.trusted, row.nameMatches, row.status};
    const ServerCertificates server{{}, world.windows.certificates.chainOf(chain)};
    const TrustSettings trust{.ignoreName = row.ignoreName};
    bool untrusted = true;
    const bool accepted = *row.refusal == 0;
    EXPECT_EQ(ServerVerification(server, trust, L"host.example").verifyCertChain(untrusted), accepted);
    EXPECT_EQ(untrusted, accepted && !row.trusted);
    EXPECT_TRUE(world.tells(row.refusal)) << world.log.text();
  }
}

}  // namespace
