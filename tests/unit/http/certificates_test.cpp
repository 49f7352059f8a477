#include "http/trust/server_verification.h"
#include "http/trust/win_cert_implementation.h"
#include "tests/unit/http/http_test.h"

// Operations on certificates, each by itself.

namespace {

using Certs = WinCertImplementation;

TEST(CertificatesTest, EveryPolicyStatus) {
  const std::vector<sim::CertificateSpec> certificates = {{"leaf"}, {"root"}};
  const std::tuple<const char*, sim::ServerChain, bool, const wchar_t*> rows[] = {
      {"untrusted root", {certificates, false, true}, false, L""},
      {"other name, ignored", {certificates, true, false}, true, L""},
      {"other name", {certificates, false, false}, false, L"Found a CN/SAN mismatch"},
      {"partial", {.certificates = certificates, .partial = true}, false, L"verify cert chain. Error: 0x800b010a"},
      {"expired", {certificates, false, true, 0x800B0101}, false, L"Unable to verify cert chain. Error: 0x800b0101"},
  };
  for (const auto& [name, chain, ignoreName, refusal] : rows) {
    SCOPED_TRACE(name);
    World world;
    const ServerCertificates server{{}, world.windows.certificates.chainOf(chain)};
    const TrustSettings trust{.ignoreName = ignoreName};
    bool untrusted = true;
    const bool accepted = *refusal == 0;
    EXPECT_EQ(ServerVerification(server, trust, L"host.example").verifyCertChain(untrusted), accepted);
    EXPECT_EQ(untrusted, accepted && !chain.trustedRoot);
    EXPECT_TRUE(world.logged(refusal)) << world.log.text();
  }
}

// URLs, thumbprints and CRLs of any chain: see the fuzz target.
TEST(CertificatesTest, WhatIsMissingFailsClosed) {
  World world;
  auto& certificates = world.windows.certificates;
  const auto chain = certificates.chainOf({{{"leaf"}, {"root"}}});
  std::uint32_t status = 9;
  world.windows.faults.failNth("CertDuplicateCertificateContext", 2, 5);
  EXPECT_TRUE(Certs::ExtractCertificatesFromChain(chain.get(), true).empty()) << "all of them, or none";
  EXPECT_TRUE(Certs::ExtractCertificatesFromChain(certificates.chainOf({}).get(), true).empty());
  EXPECT_TRUE(Certs::ExtractCertificatesFromChain(nullptr, true).empty());
  EXPECT_TRUE(Certs::ExtractCrlUrlsFromCert(nullptr).empty());
  EXPECT_TRUE(Certs::ExtractCrlUrlsFromChain(nullptr).empty());
  EXPECT_TRUE(Certs::IsCRLExpired(nullptr));
  EXPECT_TRUE(Certs::IsCertificateRevoked(nullptr, nullptr));
  EXPECT_FALSE(Certs::VerifyCertChain(nullptr, status, false, false));
  EXPECT_FALSE(Certs::VerifyCertRevocation({}, nullptr, 0, status, status));
}

// The digest of "abc": FIPS 180-2, appendix B.1.
TEST(CertificatesTest, PinsOfCertificatesInPem) {
  World world;
  const char pem[] = "-----BEGIN CERTIFICATE-----\r\nYWJj\r\n-----END CERTIFICATE-----\r\n";
  const auto abc = Certs::ConvertPEMToCertCtx(pem);
  EXPECT_EQ(Certs::GetThumbprint(abc.get()),
            "BA:78:16:BF:8F:01:CF:EA:41:41:40:DE:5D:AE:22:23:B0:03:61:A3:96:17:7A:9C:B4:10:FF:61:F2:00:15:AD");
  for (const std::size_t nth : {1u, 2u}) {
    world.windows.faults.failNth("CryptStringToBinaryA", nth, 5);
    EXPECT_FALSE(Certs::ConvertPEMToCertCtx(pem));
  }
  world.windows.faults.failNth("BCryptFinishHash", 1, 5);
  world.request->setThumbprintsFromCerts({abc.get(), nullptr, abc.get()});
  EXPECT_EQ(world.log.count(L"GetThumbprints(): Unable to generate hash for certificate:"), 2U);
  EXPECT_TRUE(world.get());
  EXPECT_EQ(world.exchange().securityFlags(), 0x100U) << "one pin is left";
}

}  // namespace
