#include "http/win_cert_implementation.h"

#include <gtest/gtest.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using Certs = WinCertImplementation;
using Handle = platform::NativeHandle;
using Texts = std::vector<std::string>;
using Points = std::vector<platform::DistributionPoint>;

constexpr std::wstring_view kClass = L"WinCertImplementation::";
const char kPem[] = "-----BEGIN CERTIFICATE-----\r\nbGVhZg==\r\n-----END CERTIFICATE-----\r\n";

/// A simulated Windows with a chain of three. It ends without an open context and without misuse of one.
struct CertWorld {
  CertWorld() { makeChain(); }
  ~CertWorld() {
    chain.reset();
    EXPECT_EQ(windows.openHandlesText(), before);
    EXPECT_EQ(windows.misuse(), Texts());
  }

  /// The chain as it is described now.
  void makeChain() {
    windows.certificates.know(shown);
    chain = windows.certificates.chainOf(shown);
  }
  std::string derOf(const platform::CertificateHandle& certificate) {
    const auto der = windows.certificates.certificate(certificate.get()).encoded;
    return {reinterpret_cast<const char*>(der.data()), der.size()};
  }
  platform::CrlHandle crl(const std::string& text) {
    return std::move(windows.certificates.CertCreateCRLContext(0x10001, std::as_bytes(std::span(text))).value);
  }
  platform::CrlHandle crl(platform::FileTime nextUpdate, const Texts& revoked = {}) {
    return crl(sim::Certificates::crlText(nextUpdate, revoked));
  }
  /// What the class has logged since the last time, a record a line: level and text without the class's name.
  std::wstring logged() {
    std::wstring text;
    for (const auto& line : log.lines()) {
      if (line.message.starts_with(kClass)) {
        text += (text.empty() ? L"" : L"\n") + std::to_wstring(line.level) + L" " + line.message.substr(kClass.size());
      }
    }
    log.clear();
    return text;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string before = windows.openHandlesText();
  sim::ServerChain shown{{{"leaf", {L"http://crl.example/\u00E9", L"ldap://b"}}, {"abc"}, {"root"}}};
  platform::ChainHandle chain;
};

// Each platform call that fails, and each input that is missing: the answer that lets nobody in, and the whole log.
TEST(WinCertImplementationTest, WhatFailsIsToldAndFailsClosed) {
  CertWorld world;
  const auto list = Certs::ExtractCertificatesFromChain(world.chain.get(), false);
  const auto leaf = list[0].get();
  const auto good = world.crl(~0ull >> 1);
  const auto blank = world.crl(std::string(sim::Certificates::kCrlWithoutInfo));
  const auto empty = world.windows.certificates.chainOf({});

  const auto pem = [] { return !Certs::ConvertPEMToCertCtx(kPem); };
  const auto extract = [](Handle chain) {
    return [=] { return Certs::ExtractCertificatesFromChain(chain, true).empty(); };
  };
  const auto urls = [](Handle cert) { return [=] { return Certs::ExtractCrlUrlsFromCert(cert).empty(); }; };
  const auto expired = [](Handle crl) { return [=] { return Certs::IsCRLExpired(crl); }; };
  const auto revoked = [](Handle cert, Handle crl) { return [=] { return Certs::IsCertificateRevoked(cert, crl); }; };
  const auto verify = [](Handle chain) {
    return [=, status = 9u]() mutable { return !Certs::VerifyCertChain(chain, status, false, false) && status == 0; };
  };
  const auto check = [&list](Handle cert) {
    return
        [=, &list, a = 9u, b = 9u]() mutable { return !Certs::VerifyCertRevocation(list, cert, a, b) && a + b == 0; };
  };
  struct Row {
    std::function<bool()> refused;
    std::wstring log;
    const char* call = "none";  // the platform call that fails, the nth
    std::size_t nth = 1;
  };
  const std::wstring noStore = L"4 VerifyCertRevocation(): Failed to add certificate to store, error = Message 5.";
  const std::wstring noPoints = L"1 ExtractCrlUrlsFromCert(): Certificate does not have CRL distribution points.";
  const std::wstring notBoth = L"4 IsCertificateRevoked(): Invalid certificate or CRL context.";
  const Row rows[] = {
      {pem, L"4 ConvertPEMToCertCtx(): Unable to decode certificate (size). Error = Message 5.",
       "CryptStringToBinaryA"},
      {pem, L"4 ConvertPEMToCertCtx(): Unable to decode certificate. Error = Message 5.", "CryptStringToBinaryA", 2},
      {pem, L"4 ConvertPEMToCertCtx(): CertCreateCertificateContext failed. Error = Message 5.",
       "CertCreateCertificateContext"},
      {extract(world.chain.get()),
       L"4 ExtractCertificatesFromChain(): CertDuplicateCertificateContext failed: Message 5.",
       "CertDuplicateCertificateContext", 2},
      {extract(nullptr), L"4 ExtractCertificatesFromChain(): Invalid certificate chain context provided."},
      {extract(empty.get()), L"4 ExtractCertificatesFromChain(): Certificate chain context has no chains."},
      {urls(leaf), noPoints, "CertFindExtension"},
      {urls(leaf),
       L"4 ExtractCrlUrlsFromCert(): CryptDecodeObjectEx failed to decode CRL distribution points: Message 5.\n"
       L"4 ExtractCrlUrlsFromCert(): Failed to decode CRL distribution points.",
       "CryptDecodeObjectEx"},
      {urls(list[1].get()), noPoints},
      {urls(nullptr), L"4 ExtractCrlUrlsFromCert(): Certificate context is invalid."},
      {[] { return Certs::ExtractCrlUrlsFromChain(nullptr).empty(); },
       L"4 ExtractCrlUrlsFromChain(): Certificate chain context is invalid."},
      {expired(nullptr), L"4 IsCRLExpired(): CRL context is invalid."},
      {expired(blank.get()), L"4 IsCRLExpired(): CRL context has no CRL info."},
      {revoked(nullptr, good.get()), notBoth},
      {revoked(leaf, nullptr), notBoth},
      {revoked(list[1].get(), good.get()),
       L"4 IsCertificateRevoked(): Failed to search crl for certificate with thumbprint: BA:78:16:BF:8F:01:CF:EA:41:41:"
       L"40:DE:5D:AE:22:23:B0:03:61:A3:96:17:7A:9C:B4:10:FF:61:F2:00:15:AD.",
       "CertFindCertificateInCRL"},
      {verify(nullptr), L""},
      {verify(world.chain.get()), L"4 VerifyCertChain(): CertVerifyCertificateChainPolicy Error: Message 5.",
       "CertVerifyCertificateChainPolicy"},
      {check(nullptr), L""},
      {check(leaf), noStore, "CertOpenStore"},
      {check(leaf), noStore, "CertAddCertificateContextToStore", 3},
      {check(leaf), L"4 VerifyCertRevocation(): CertGetCertificateChain with revocation failed: 0x5 Message 5.",
       "CertGetCertificateChain"},
  };
  for (const Row& row : rows) {
    world.windows.faults.failNth(row.call, row.nth, 5);
    EXPECT_TRUE(row.refused()) << (&row - rows);
    EXPECT_EQ(world.logged(), row.log);
  }
}

TEST(WinCertImplementationTest, CertificatesAndTheirCrlUrls) {
  CertWorld world;
  for (const char* const text : {kPem, "bGVh\nZg=="}) {
    EXPECT_EQ(world.derOf(Certs::ConvertPEMToCertCtx(text)), "leaf");
  }
  for (const bool asLive : {false, true}) {
    const auto list = Certs::ExtractCertificatesFromChain(world.chain.get(), asLive);
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(world.derOf(list[0]) + world.derOf(list[1]) + world.derOf(list[2]), "leafabcroot");
  }
  const auto found = Certs::ExtractCrlUrlsFromChain(world.chain.get());
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].urls, Texts({"http://crl.example/\xC3\xA9", "ldap://b"}));
  EXPECT_EQ(found[2].certificate, world.windows.certificates.chain(world.chain.get()).certificates[2]);
  world.log.clear();

  const auto urlsOf = [&](const sim::CertificateSpec& about) {
    return Certs::ExtractCrlUrlsFromCert(world.windows.certificates.certificateOf(about).get());
  };
  sim::CertificateSpec about{"c"};
  about.points = Points{{true, {{7, L"http://b"}, {2, L"dns"}, {7, L"http://a"}}}, {false, {{7, L"http://n"}}}, {true}};
  EXPECT_EQ(urlsOf(about), Texts({"http://b", "http://a"})) << "in their order; names of other kinds are not URLs";
  about.points.emplace(std::nullopt);
  EXPECT_EQ(urlsOf(about), Texts());
  EXPECT_EQ(urlsOf({.der = "c", .crlUrls = {L"http://a"}, .hasInfo = false}), Texts());
  EXPECT_EQ(urlsOf({.der = "c", .hasExtensions = false}), Texts());
  EXPECT_EQ(world.logged(),
            L"1 ExtractCrlUrlsFromCert(): cAltEntry=3\n1 ExtractCrlUrlsFromCert(): Found CRL URL: http://b\n"
            L"1 ExtractCrlUrlsFromCert(): Found CRL URL: http://a\n1 ExtractCrlUrlsFromCert(): cAltEntry=0\n"
            L"4 ExtractCrlUrlsFromCert(): CRL distribution points are null.\n"
            L"4 ExtractCrlUrlsFromCert(): Certificate context is invalid.\n"
            L"1 ExtractCrlUrlsFromCert(): Certificate has no extensions.");
}

TEST(WinCertImplementationTest, CrlsGrowOldAndListCertificates) {
  CertWorld world;
  const auto now = world.windows.kernel.now();  // 2026-11-13 04:13:48.123
  EXPECT_FALSE(Certs::IsCRLExpired(world.crl(now).get()));
  EXPECT_EQ(world.logged(), L"");
  EXPECT_TRUE(Certs::IsCRLExpired(world.crl(now - 1).get()));
  EXPECT_TRUE(Certs::IsCRLExpired(world.crl(0).get()));
  EXPECT_EQ(world.logged(),
            L"4 IsCRLExpired(): CRL is expired. Current time: 2026-11-13,04:13:48, Next update: 2026-11-13,04:13:48\n"
            L"4 IsCRLExpired(): CRL is expired. Current time: 2026-11-13,04:13:48, Next update: 1601-01-01,00:00:00");
  const auto leaf = world.windows.certificates.certificateOf({"leaf"});
  EXPECT_FALSE(Certs::IsCertificateRevoked(leaf.get(), world.crl(1, {"other"}).get()));
  EXPECT_TRUE(Certs::IsCertificateRevoked(leaf.get(), world.crl(1, {"other", "leaf"}).get()));
}

TEST(WinCertImplementationTest, VerdictsOnAChain) {
  struct Row {
    bool trusted, named;
    std::uint32_t other;
    bool allowUnknown, ignoreName;
    const wchar_t* server;
    std::uint32_t status;
  };
  const Row rows[] = {
      {true, true, 0, false, false, L"h", 0},
      {false, true, 0, false, false, L"h", 0x800B0109},
      {false, true, 0, true, false, L"h", 0},
      {true, false, 0, true, false, L"h", 0x800B010F},
      {true, false, 0, false, true, L"h", 0},
      {true, false, 0, false, false, L"", 0},
      {true, true, 0x800B0101, true, true, L"h", 0x800B0101},  // out of its time
  };
  CertWorld world;
  for (const Row& row : rows) {
    world.shown.trustedRoot = row.trusted;
    world.shown.nameMatches = row.named;
    world.shown.policyStatus = row.other;
    world.makeChain();
    std::uint32_t status = 9;
    EXPECT_TRUE(Certs::VerifyCertChain(world.chain.get(), status, row.allowUnknown, row.ignoreName, row.server));
    EXPECT_EQ(status, row.status) << (&row - rows);
  }
  world.shown.revocationError = 4;  // CERT_TRUST_IS_REVOKED
  world.shown.revocationInfo = 0x100;
  world.makeChain();
  const auto list = Certs::ExtractCertificatesFromChain(world.chain.get(), false);
  std::uint32_t error = 9, info = 9;
  EXPECT_TRUE(Certs::VerifyCertRevocation(list, list[0].get(), error, info));
  EXPECT_EQ(error, 4U) << "more would say that the store lacked one of the list, or that no server usage was asked for";
  EXPECT_EQ(info, 0x100U);
  EXPECT_EQ(world.windows.certificates.chainFlags(), std::vector<std::uint32_t>({0x20000001}));
  EXPECT_EQ(world.logged(), L"");
}

}  // namespace
