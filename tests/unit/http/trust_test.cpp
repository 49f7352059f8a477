#include <algorithm>

#include "core/convert.h"
#include "http/win_cert_implementation.h"
#include "tests/unit/http/http_test.h"

// Which servers a request goes to: the preflight, the check inside the sending-request notification, pins, revocation.

namespace {

constexpr platform::FileTime kDay = 24ull * 3600 * 10000000;
const wchar_t kCrl[] = L"http://crl.example/a";
const wchar_t kOtherCrl[] = L"http://crl.example/b";

sim::ServerChain chainOf(std::vector<std::wstring> crlUrls = {kCrl}) {
  return {{{"leaf", std::move(crlUrls)}, {"issuer"}, {"root"}}};
}

/// A request that checks certificates, its server, and a server of CRLs at crl.example.
struct TrustWorld : World {
  explicit TrustWorld(sim::Delivery delivery = sim::Delivery::kWorker) : World(delivery) {
    request->checksCertificates = true;
    crls[L"/a"] = crls[L"/b"] = sim::Certificates::crlText(windows.kernel.now() + kDay);
    windows.winHttp.onHandshake(
        [this](const sim::HttpExchange& exchange) { return exchange.index > 0 && live ? *live : chain; });
    windows.winHttp.onRequest([this](const sim::HttpExchange& exchange) {
      if (exchange.host != L"crl.example") {
        return reply;
      }
      const auto crl = crls.find(exchange.path);
      sim::HttpReply answer;
      answer.status = crl == crls.end() ? 404 : 200;
      answer.body = crl == crls.end() ? "" : crl->second;
      answer.hold = exchange.path == held;
      return answer;
    });
  }

  std::string pinOf(const std::string& der) {
    return WinCertImplementation::GetThumbprint(windows.certificates.certificateOf({der}).get());
  }
  void askRevocation(const char* proxy) {
    request->enableRevocationCheck();
    request->setProxy(proxy);
  }
  /// Runs the request to its end. True when it reached the server (of which the probe must see nothing).
  bool reaches() {
    const bool started = get();
    settle();
    EXPECT_EQ(completions, started ? 1 : 0);
    bool reached = false;
    for (const auto& exchange : windows.winHttp.requests()) {
      reached = reached || (exchange.reached && exchange.host == L"host.example");
    }
    EXPECT_EQ(reached, request->getResponseCode() == 200 && body == reply.body);
    return reached;
  }
  /// Whether the log has records that contain these texts, in this order.
  bool tells(const std::vector<const wchar_t*>& texts) {
    auto wanted = texts.begin();
    for (const auto& line : log.lines()) {
      wanted += wanted != texts.end() && line.message.find(*wanted) != std::wstring::npos ? 1 : 0;
    }
    return wanted == texts.end();
  }

  sim::ServerChain chain = chainOf();
  std::optional<sim::ServerChain> live;  ///< shown from the second request on
  std::map<std::wstring, std::string> crls;
  std::wstring held;  ///< the CRL that is never answered
};

enum Reach {
  kReaches,
  kStops,
  kNeverReaches,  ///< not even when a platform call fails
};

struct Situation {
  const char* name;
  Reach reach;
  std::size_t requests;  ///< of all, probe and CRLs included
  std::function<void(TrustWorld&)> prepare;
  std::vector<const wchar_t*> lines;
};

constexpr char kProxy[] = "proxy:8080";
constexpr wchar_t kKillswitch[] = L"HKLM\\Software\\Calvera\\Meridon\\Node Manager\\DisableManualCRLCheck";

const Situation kSituations[] = {
    {"nothing asked", kReaches, 1, [](TrustWorld&) {}, {}},
    {"ignoring all errors",
     kReaches,
     1,
     [](TrustWorld& w) { w.askRevocation(kProxy), w.request->ignoreCertErrors(); },
     {}},
    {"automatic check",
     kReaches,
     2,
     [](TrustWorld& w) { w.askRevocation(""); },
     {L"Sending out preflight request", L"Skipping preflight certificate verification", L"aborting probe before any",
      L"Preflight request successfully obtained", L"Performing automatic CRL check",
      L"CRL check for preflight's certificates completed"}},
    {"automatic check, revoked",
     kNeverReaches,
     1,
     [](TrustWorld& w) { w.askRevocation(""), w.chain.revocationError = 4; },
     {L"automaticCRLCheck(): Revocation check failed. Status: 0x4 Info: 0x0", L"Preflight: automatic CRL check failed",
      L"Pre-flight certificate verification failed for https://host.example/c/b.zip?sv=1"}},
    {"manual check through the proxy",
     kReaches,
     3,
     [](TrustWorld& w) { w.askRevocation(kProxy); },
     {L"Performing manual CRL check", L"CRL URL: http://crl.example/a", L"Using proxy server: http://proxy:8080",
      L"is NOT revoked by CRL http://crl.example/a", L"No CRL URLs found for certificate with subject name: CN=issuer",
      L"Preflight thumbprint matched live cert", L"Preflight thumbprints matched all live certs"}},
    {"manual check, revoked",
     kNeverReaches,
     2,
     [](TrustWorld& w) {
       w.askRevocation(kProxy);
       w.chain.revocationError = 4;  // WinHTTP and the platform know it as well
       w.crls[L"/a"] = sim::Certificates::crlText(w.windows.kernel.now() + kDay, {"leaf"});
     },
     {L"is REVOKED by CRL http://crl.example/a", L"Preflight: manual CRL check failed"}},
    {"the first CRL cannot be used, whatever is wrong with it",
     kReaches,
     6,
     [](TrustWorld& w) {
       w.chain = chainOf(
           {L"http://crl.example/none", L"ldap:///x", L"http://crl.example/text", L"http://crl.example/old", kCrl});
       w.crls[L"/text"] = "no CRL";
       w.crls[L"/old"] = sim::Certificates::crlText(w.windows.kernel.now() - 1);
       w.askRevocation(kProxy);
     },
     {L"CRL request failed for http://crl.example/none", L"CRL request failed for ldap:///x",
      L"Unable to create CRL context for http://crl.example/text: ", L"CRL http://crl.example/old is EXPIRED",
      L"is NOT revoked by CRL http://crl.example/a"}},
    {"every CRL cannot be used",
     kStops,
     3,
     [](TrustWorld& w) {
       w.chain = chainOf({kCrl, kOtherCrl});
       w.crls[L"/a"] = sim::Certificates::crlText(0);
       w.crls.erase(L"/b");
       w.askRevocation(kProxy);
     },
     {L"CRL http://crl.example/a is EXPIRED", L"Unable to perform any CRL checks for certificate with thumbprint "}},
    {"a CRL that never comes",
     kReaches,
     4,
     [](TrustWorld& w) {
       w.chain = chainOf({kOtherCrl, kCrl});
       w.held = L"/b";
       w.askRevocation(kProxy);
     },
     {L"CRL request failed for http://crl.example/b", L"is NOT revoked by CRL http://crl.example/a"}},
    {"killswitch",
     kReaches,
     2,
     [](TrustWorld& w) { w.askRevocation(kProxy), w.windows.registry.set(kKillswitch, L"true"); },
     {L"Manual CRL check is disabled by killswitch", L"Performing automatic CRL check", L"matched all live certs"}},
    {"private root, pin of the root",
     kReaches,
     3,
     [](TrustWorld& w) {
       w.chain.trustedRoot = false;
       w.request->setThumbprints({"AB:01", w.pinOf("root")});
       w.askRevocation("");
     },
     {L"Performing manual CRL check", L"thumbprintMatch(): Server Thumbprint: ", L"Matched thumbprint: "}},
    {"private root, killswitch",
     kStops,
     1,
     [](TrustWorld& w) {
       w.chain.trustedRoot = false;
       w.request->addThumbprint(w.pinOf("root"));
       w.windows.registry.set(kKillswitch, L"1");
       w.askRevocation("");
     },
     {L"Revocation check failed. Status: 0x20 Info: 0x0"}},
    {"private root, lower-case pin",
     kNeverReaches,
     2,
     [](TrustWorld& w) {
       w.chain.trustedRoot = false;
       std::string pin = w.pinOf("leaf");
       std::transform(pin.begin(), pin.end(), pin.begin(),
                      [](char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c + 32) : c; });
       w.request->addThumbprint(pin);
       w.askRevocation("");
     },
     {L"thumbprintMatch(): Thumbprints did not match.",
      L"preflightCertVerification(): Thumbprint verification failed."}},
    {"private root, no pin",
     kNeverReaches,
     2,
     [](TrustWorld& w) { w.chain.trustedRoot = false, w.askRevocation(kProxy); },
     {L"failed to obtain server certificates. Will perform an in-callback check instead.",
      L"Certificate Authority is unrecognized", L"WinHttpSendRequest failed for url "}},
    {"pin of the issuer without revocation",
     kReaches,
     1,
     [](TrustWorld& w) { w.chain.trustedRoot = false, w.request->addThumbprint(w.pinOf("issuer")); },
     {L"Matched thumbprint: "}},
    {"wrong pin without revocation",
     kNeverReaches,
     1,
     [](TrustWorld& w) { w.chain.trustedRoot = false, w.request->addThumbprint(w.pinOf("another")); },
     {L"SendingRequest(): Thumbprint verification failed."}},
    {"wrong pin, but a trusted root", kReaches, 1, [](TrustWorld& w) { w.request->addThumbprint("AB:01"); }, {}},
    {"another name, ignored",
     kReaches,
     3,
     [](TrustWorld& w) { w.chain.nameMatches = false, w.request->ignoreCertNameMismatch(), w.askRevocation(kProxy); },
     {L"matched all live certs"}},
    {"the live chain has one more",
     kStops,
     3,
     [](TrustWorld& w) {
       w.live = chainOf();
       w.live->certificates.push_back({"another"});
       w.askRevocation(kProxy);
     },
     {L"Preflight thumbprint matched live cert", L"Preflight thumbprint did NOT match live cert"}},
    {"the probe captures nothing",
     kReaches,
     2,
     [](TrustWorld& w) { w.live = chainOf(), w.chain.policyStatus = 0x800B0101, w.askRevocation(kProxy); },
     {L"Certificate is expired", L"Will perform an in-callback check instead."}},
    {"the probe captures nothing, revoked",
     kNeverReaches,
     2,
     [](TrustWorld& w) {
       w.live = chainOf();
       w.live->revocationError = 4;
       w.chain.policyStatus = 0x800B0101;
       w.askRevocation(kProxy);
     },
     {L"SendingRequest(): Certificate revocation check failed."}},
    {"the probe never ends",
     kReaches,
     2,
     [](TrustWorld& w) { w.live = chainOf(), w.chain.silent = true, w.askRevocation(kProxy); },
     {L"performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1) failed.",
      L"Will perform an in-callback check instead."}},
    {"WinHTTP does not tell the chain",
     kReaches,
     3,
     [](TrustWorld& w) { w.windows.winHttp.knowsChainOption = false, w.askRevocation(kProxy); },
     {L"GetCertChain(): Building the certificate chain using the system store", L"matched all live certs"}},
    {"the proxy's credentials are right",
     kReaches,
     3,
     [](TrustWorld& w) {
       w.windows.winHttp.proxyCredentials = {L"user", L"swordfish"};
       w.request->setProxyCredentials("user", L"swordfish");
       w.askRevocation(kProxy);
     },
     {L"matched all live certs"}},
    {"the proxy's credentials are wrong",
     kStops,
     2,
     [](TrustWorld& w) {
       w.windows.winHttp.proxyCredentials = {L"user", L"another"};
       w.request->setProxyCredentials("user", L"swordfish");
       w.askRevocation(kProxy);
     },
     {L"GetServerCert(): Unable to query cert ctx, error 0x2ef3 (",
      L"SendingRequest(): Unable to obtain server certificate"}},
};

TEST(TrustTest, Situations) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kMixed}) {
    for (const Situation& situation : kSituations) {
      SCOPED_TRACE(situation.name);
      TrustWorld world(delivery);
      situation.prepare(world);
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
    if (situation.reach != kNeverReaches) {
      continue;
    }
    SCOPED_TRACE(situation.name);
    std::size_t calls = 0;
    for (std::size_t k = 0; k <= calls; ++k) {  // 0: none fails
      TrustWorld world(sim::Delivery::kInline);
      situation.prepare(world);
      const std::size_t before = world.windows.faults.calls().size();
      world.windows.faults.failCall(before + k, platform::kErrorNotEnoughMemory);
      const bool reached = world.reaches();
      const auto made = world.windows.faults.calls();
      const std::string failed = before + k <= made.size() ? made[before + k - 1] : "";
      EXPECT_FALSE(reached && failed != "CertFindExtension" && failed != "CryptDecodeObjectEx") << failed << "\n"
                                                                                                << world.log.text();
      calls = std::max(calls, made.size() - before);
    }
  }
}

TEST(TrustTest, WhatTheProbeTakesAlongAndWhatChainsCost) {
  TrustWorld world;
  world.request->setProxyBypass("*.local");
  world.request->setProxyCredentials("user", L"swordfish");
  world.request->setTimeoutsMs(1, 2, 3, 4);
  world.request->ignoreCertNameMismatch();
  world.request->addThumbprint("AB:01");
  world.windows.winHttp.knowsChainOption = false;
  world.askRevocation(kProxy);
  EXPECT_TRUE(world.reaches());
  const auto requests = world.windows.winHttp.requests();
  ASSERT_EQ(requests.size(), 3U);
  const auto &probe = requests[0], &crl = requests[1], &real = requests[2];
  EXPECT_EQ(probe.verb, L"GET");
  EXPECT_FALSE(probe.reached);
  EXPECT_EQ(probe.path, real.path);
  EXPECT_EQ(probe.securityFlags(), 0x1100U);
  EXPECT_EQ(probe.callbackMask, 0x097F0C10U);
  EXPECT_EQ(probe.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(crl.callbackMask, 0x097F0C00U);
  EXPECT_EQ(crl.requestFlags, 0x100U);
  for (const auto& request : requests) {
    EXPECT_EQ(request.proxy, L"http://proxy:8080");
    EXPECT_EQ(request.bypass, L"*.local");
    EXPECT_EQ(request.textOptions.at(0x1002), L"user");
    EXPECT_EQ(request.textOptions.at(0x1003), L"swordfish");
  }
  EXPECT_EQ(world.windows.certificates.chainFlags(), (std::vector<std::uint32_t>{4, 4})) << "nothing from the network";
  EXPECT_EQ(world.windows.certificates.serverNames(), std::vector<std::wstring>({L"host.example"}))
      << "the name goes to the policy";
}

TEST(TrustTest, EveryPolicyStatus) {
  struct Row {
    bool trusted, nameMatches;
    std::uint32_t status;
    bool ignoreName, accepted, untrusted;
    const wchar_t* text;
  };
  const Row rows[] = {
      {true, true, 0, false, true, false, nullptr},
      {false, true, 0, false, true, true, nullptr},
      {true, false, 0, false, false, false, L"Found a CN/SAN mismatch"},
      {true, false, 0, true, true, false, nullptr},
      {false, false, 0, false, false, false, L"Found a CN/SAN mismatch"},
      {false, true, 0x800B0101, false, false, false, L"Unable to verify cert chain. Error: 0x800b0101"},
      {true, true, platform::kCertECnNoMatch, true, true, false, L"Found a CN/SAN mismatch"},
  };
  const std::wstring host = L"host.example";
  for (const Row& row : rows) {
    TrustWorld world;
    const sim::ServerChain chain{{{"leaf"}, {"root"}}, row.trusted, row.nameMatches, row.status};
    const ServerCertificates server{world.windows.certificates.certificateOf({"leaf"}),
                                    world.windows.certificates.chainOf(chain)};
    const TrustSettings trust{.ignoreName = row.ignoreName};
    bool untrusted = true;
    EXPECT_EQ(ServerVerification(server, trust, host).verifyCertChain(untrusted), row.accepted);
    EXPECT_EQ(untrusted, row.untrusted);
    EXPECT_TRUE(row.text == nullptr || world.tells({row.text})) << world.log.text();
  }
}

}  // namespace
