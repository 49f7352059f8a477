#include "http/win_cert_implementation.h"

#include "tests/unit/http/http_test.h"

namespace {

using Certs = WinCertImplementation;
using Texts = std::vector<std::string>;
using Points = std::vector<platform::DistributionPoint>;

const char kPem[] = "-----BEGIN CERTIFICATE-----\r\nbGVhZg==\r\n-----END CERTIFICATE-----\r\n";
const sim::ServerChain kShown{{{"leaf", {L"http://crl.example/\u00E9", L"ldap://b"}}, {"abc"}, {"root"}}};

platform::CrlHandle crlOf(World& world, std::string_view text) {
  return std::move(world.windows.certificates.CertCreateCRLContext(0x10001, std::as_bytes(std::span(text))).value);
}

/// Asks each operation once about things that nothing is wrong with.
/// \return the one that refuses; none: empty
std::wstring refusing(World& world) {
  auto& certificates = world.windows.certificates;
  certificates.know(kShown);
  const auto chain = certificates.chainOf(kShown);
  const auto leaf = certificates.certificateOf(kShown.certificates[0]);
  std::uint32_t status = 9, error = 9, info = 9;
  std::wstring out = Certs::ConvertPEMToCertCtx(kPem) ? L"" : L"ConvertPEMToCertCtx";
  const auto list = Certs::ExtractCertificatesFromChain(chain.get(), true);
  out += list.empty() ? L"ExtractCertificatesFromChain" : L"";
  out += Certs::ExtractCrlUrlsFromCert(leaf.get()).empty() ? L"ExtractCrlUrlsFromCert" : L"";
  out += Certs::IsCertificateRevoked(leaf.get(), crlOf(world, sim::Certificates::crlText(1)).get())
             ? L"IsCertificateRevoked"
             : L"";
  out += Certs::VerifyCertChain(chain.get(), status, false, false) ? L"" : L"VerifyCertChain";
  out += Certs::VerifyCertRevocation(list, leaf.get(), error, info) ? L"" : L"VerifyCertRevocation";
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(error + info, list.empty() ? 0x10000U : 0U) << "more than all of the list in the store, or a usage missing";
  return out;
}

TEST(WinCertImplementationTest, CallsThatFailAreToldAndFailClosed) {
  struct Row {
    const char* call;
    std::size_t nth;       ///< of the calls of that name
    const wchar_t* error;  ///< after the class's name; begins with the operation that refuses
  };
  const Row rows[] = {
      {"CryptStringToBinaryA", 1, L"ConvertPEMToCertCtx(): Unable to decode certificate (size). Error = Message 5."},
      {"CryptStringToBinaryA", 2, L"ConvertPEMToCertCtx(): Unable to decode certificate. Error = Message 5."},
      {"CertCreateCertificateContext", 1,
       L"ConvertPEMToCertCtx(): CertCreateCertificateContext failed. Error = Message 5."},
      {"CertDuplicateCertificateContext", 2,
       L"ExtractCertificatesFromChain(): CertDuplicateCertificateContext failed: Message 5."},
      {"CryptDecodeObjectEx", 1,
       L"ExtractCrlUrlsFromCert(): CryptDecodeObjectEx failed to decode CRL distribution points: Message 5."},
      {"CryptDecodeObjectEx", 1, L"ExtractCrlUrlsFromCert(): Failed to decode CRL distribution points."},
      {"CertFindCertificateInCRL", 1,
       L"IsCertificateRevoked(): Failed to search crl for certificate with thumbprint: "},
      {"CertVerifyCertificateChainPolicy", 1, L"VerifyCertChain(): CertVerifyCertificateChainPolicy Error: Message 5."},
      {"CertOpenStore", 1, L"VerifyCertRevocation(): Failed to add certificate to store, error = Message 5."},
      {"CertAddCertificateContextToStore", 3,
       L"VerifyCertRevocation(): Failed to add certificate to store, error = Message 5."},
      {"CertGetCertificateChain", 1,
       L"VerifyCertRevocation(): CertGetCertificateChain with revocation failed: 0x5 Message 5."},
  };
  for (const Row& row : rows) {
    World world;
    world.windows.faults.failNth(row.call, row.nth, 5);
    const auto refused = refusing(world);
    EXPECT_TRUE(!refused.empty() && std::wstring(row.error).starts_with(refused + L"()")) << row.call;
    EXPECT_TRUE(world.log.has(CORE::kError, std::wstring(L"WinCertImplementation::") + row.error)) << world.log.text();
  }
  World world;
  EXPECT_EQ(refusing(world), L"");
  EXPECT_EQ(world.errors(), Errors());
  EXPECT_EQ(world.windows.certificates.chainFlags(), std::vector<std::uint32_t>({0x20000001}));
}

TEST(WinCertImplementationTest, WhatIsMissingFailsClosed) {
  World world;
  const auto leaf = world.windows.certificates.certificateOf({"leaf"});
  const auto crl = crlOf(world, sim::Certificates::crlText(1));
  std::uint32_t status = 9;
  EXPECT_TRUE(Certs::ExtractCertificatesFromChain(nullptr, true).empty());
  EXPECT_TRUE(Certs::ExtractCertificatesFromChain(world.windows.certificates.chainOf({}).get(), true).empty());
  EXPECT_TRUE(Certs::ExtractCrlUrlsFromCert(nullptr).empty());
  EXPECT_TRUE(Certs::ExtractCrlUrlsFromChain(nullptr).empty());
  EXPECT_TRUE(Certs::IsCRLExpired(nullptr));
  EXPECT_TRUE(Certs::IsCRLExpired(crlOf(world, sim::Certificates::kCrlWithoutInfo).get()));
  EXPECT_TRUE(Certs::IsCertificateRevoked(nullptr, crl.get()));
  EXPECT_TRUE(Certs::IsCertificateRevoked(leaf.get(), nullptr));
  EXPECT_EQ(world.log.text(),
            "ERROR WinCertImplementation::ExtractCertificatesFromChain(): Invalid certificate chain context provided.\n"
            "ERROR WinCertImplementation::ExtractCertificatesFromChain(): Certificate chain context has no chains.\n"
            "ERROR WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate context is invalid.\n"
            "ERROR WinCertImplementation::ExtractCrlUrlsFromChain(): Certificate chain context is invalid.\n"
            "ERROR WinCertImplementation::IsCRLExpired(): CRL context is invalid.\n"
            "ERROR WinCertImplementation::IsCRLExpired(): CRL context has no CRL info.\n"
            "ERROR WinCertImplementation::IsCertificateRevoked(): Invalid certificate or CRL context.\n"
            "ERROR WinCertImplementation::IsCertificateRevoked(): Invalid certificate or CRL context.\n");
  EXPECT_FALSE(Certs::VerifyCertChain(nullptr, status, false, false));
  EXPECT_FALSE(Certs::VerifyCertRevocation({}, nullptr, status, status));
  EXPECT_EQ(status, 0U);
}

TEST(WinCertImplementationTest, PemAndCrlUrls) {
  World world;
  auto& certificates = world.windows.certificates;
  EXPECT_EQ(Certs::GetThumbprint(Certs::ConvertPEMToCertCtx(kPem).get()),
            Certs::GetThumbprint(certificates.certificateOf({"leaf"}).get()));
  const auto urlsOf = [&](const sim::CertificateSpec& about) {
    return Certs::ExtractCrlUrlsFromCert(certificates.certificateOf(about).get());
  };
  sim::CertificateSpec about{"c"};
  about.points =
      Points{{true, {{7, L"http://\u00E9"}, {2, L"dns"}, {7, L"http://a"}}}, {false, {{7, L"http://n"}}}, {true}};
  EXPECT_EQ(urlsOf(about), Texts({"http://\xC3\xA9", "http://a"}))
      << "in their order; names of other kinds are not URLs";
  about.points.emplace(std::nullopt);
  EXPECT_EQ(urlsOf(about), Texts());
  EXPECT_EQ(urlsOf({"plain"}), Texts());
  EXPECT_EQ(urlsOf({.der = "c", .hasExtensions = false}), Texts());
  EXPECT_EQ(
      world.log.text(),
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): cAltEntry=3\n"
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): Found CRL URL: http://\xC3\xA9\n"
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): Found CRL URL: http://a\n"
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): cAltEntry=0\n"
      "ERROR WinCertImplementation::ExtractCrlUrlsFromCert(): CRL distribution points are null.\n"
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate does not have CRL distribution points.\n"
      "DEBUG WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate has no extensions.\n");
}

// The digest of "abc": FIPS 180-2, appendix B.1.
TEST(WinCertImplementationTest, ThumbprintsAreSha256InUpperCasePairs) {
  World world;
  const auto abc = world.windows.certificates.certificateOf({"abc"});
  EXPECT_EQ(Certs::GetThumbprints({abc.get()}), Texts({"BA:78:16:BF:8F:01:CF:EA:41:41:40:DE:5D:AE:22:23:B0:03:61:A3:96:"
                                                       "17:7A:9C:B4:10:FF:61:F2:00:15:AD"}));
  world.windows.faults.failNth("BCryptFinishHash", 1, 5);
  world.request->setThumbprintsFromCerts({abc.get(), nullptr, abc.get()});
  const std::wstring name = L"WinCertImplementation::GetThumbprint";
  EXPECT_EQ(world.log.count(name + L"Binary::<lambda_1>::operator ()(): GenerateHash failed."), 2U);
  EXPECT_EQ(world.log.count(name + L"s(): Unable to generate hash for certificate:"), 2U);
  EXPECT_TRUE(world.get());
  EXPECT_EQ(world.exchange().securityFlags(), 0x100U) << "one pin is left";
}

}  // namespace
