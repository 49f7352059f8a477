#include "platform/certificates.h"

#include <algorithm>
#include <array>

#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

// A root and a leaf of it (CN and DNS name check.example, server authentication, one CRL distribution point with two
// URLs and a name of another kind between them). Both end when 2120 begins.
constexpr std::string_view kRoot =
    "MIIBfDCCASOgAwIBAgIBKjAKBggqhkjOPQQDAjAlMQ4wDAYDVQQKDAVtZERDVDETMBEGA1UEAwwKY2hlY2sgcm9vdDAgFw0yMDAxMDEwMDAwMDBaG"
    "A8yMTIwMDEwMTAwMDAwMFowJTEOMAwGA1UECgwFbWREQ1QxEzARBgNVBAMMCmNoZWNrIHJvb3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAAQ6fz"
    "WIfd63ue2yQP/vD4AMSAOUWR4jdCHjbaofyWHLPXg0un3ThEkWk8k+W3SVya4IrSbhg8Se7xt4JADMSUJPo0IwQDAPBgNVHRMBAf8EBTADAQH/MA4"
    "GA1UdDwEB/wQEAwIBBjAdBgNVHQ4EFgQUgJkvPNa0F73NOPfimPuKSVZVlzUwCgYIKoZIzj0EAwIDRwAwRAIgUrYHV2g/FoQvnjArwbcYPLzP8Gp6"
    "EDDZfYwJVPD13dACID5eB2tZZekbdaACXW5zM+AdtHqaNY89TXb8xAdkjpAN";
constexpr std::string_view kLeaf =
    "MIICBjCCAaygAwIBAgIBKzAKBggqhkjOPQQDAjAlMQ4wDAYDVQQKDAVtZERDVDETMBEGA1UEAwwKY2hlY2sgcm9vdDAgFw0yMDAxMDEwMDAwMDBaG"
    "A8yMTIwMDEwMTAwMDAwMFowKDEOMAwGA1UECgwFbWREQ1QxFjAUBgNVBAMMDWNoZWNrLmV4YW1wbGUwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAA"
    "RZppsRsEU3cFZzZDeYLlTjDHg9EtGPEpK++pYZbMQ8FAULLS9D7rkV5Ai4rOkSVdp+N/CWUgLI0wHaADXR6x8Ho4HHMIHEMBMGA1UdJQQMMAoGCCs"
    "GAQUFBwMBMBgGA1UdEQQRMA+CDWNoZWNrLmV4YW1wbGUwUwYDVR0fBEwwSjBIoEagRIYYaHR0cDovL2NybC5leGFtcGxlL2EuY3JspA4wDDEKMAgG"
    "A1UEAwwBYYYYaHR0cDovL2NybC5leGFtcGxlL2IuY3JsMB0GA1UdDgQWBBRsFbkHqWbQJRSuZr1xLQeS2vkIsDAfBgNVHSMEGDAWgBSAmS881rQXv"
    "c049+KY+4pJVlWXNTAKBggqhkjOPQQDAgNIADBFAiAggWrDFSTfYUqCeJSC1BoK3G+BUZwOLF9DeSk8cK4PuQIhAOupp0OU8W3CkH3683xUfeneh6"
    "QRwrXaPg9x0O+WNF5z";

platform::Certificates& api() { return platform::current().certificates; }

std::vector<std::byte> decode(std::string_view text) {
  const auto size = api().CryptStringToBinaryA(text, platform::kCryptStringBase64Any, {});
  std::vector<std::byte> der(size.value);
  der.resize(api().CryptStringToBinaryA(text, platform::kCryptStringBase64Any, der).value);
  return der;
}

platform::CertificateHandle certificateFrom(std::string_view text) {
  return std::move(api().CertCreateCertificateContext(platform::kEncodingX509Pkcs7, decode(text)).value);
}

void encodings() {
  const auto der = decode("-----BEGIN CERTIFICATE-----\r\n" + std::string(kLeaf) + "\r\n-----END CERTIFICATE-----\r\n");
  that(der.size() == 522 && der.at(3) == std::byte{0x06} && der.back() == std::byte{0x73} && der == decode(kLeaf),
       "certificates: PEM and bare base64 decode to the same bytes");
  const auto bad = api().CryptStringToBinaryA("no base64!", platform::kCryptStringBase64Any, {});
  that(bad.error == platform::kErrorInvalidData, "certificates: other text does not");
  const auto half = api().CertCreateCertificateContext(platform::kEncodingX509Pkcs7, std::span(der).first(261));
  that(!half.ok && !half.value, "certificates: half of one is refused");
  that(api().CertDuplicateCertificateContext(nullptr).error == platform::kErrorInvalidParameter &&
           !api().CertFindCertificateInCRL(nullptr, nullptr).ok && !api().certificate(nullptr).hasInfo &&
           api().chain(nullptr).simpleChains == 0 && !api().crl(nullptr).hasInfo,
       "certificates: null contexts are refused, and seen as empty");
}

void fields(platform::NativeHandle root, platform::NativeHandle leaf) {
  const auto view = api().certificate(leaf);
  that(std::ranges::equal(view.encoded, decode(kLeaf)) && view.hasInfo && view.extensions == 5,
       "certificates: the fields of a context");
  const auto value = api().CertFindExtension("2.5.29.31", leaf);
  const auto decoded = api().CryptDecodeObjectEx(platform::kEncodingX509Pkcs7, value.value);
  const auto points = decoded.value.value_or(std::vector<platform::DistributionPoint>());
  const bool one = points.size() == 1 && points[0].hasFullName && points[0].names.size() == 3;
  that(one && points[0].names[0].url == L"http://crl.example/a.crl" && points[0].names[1].type == 5 &&
           points[0].names[1].url.empty() && points[0].names[2].type == platform::kAltNameUrl &&
           points[0].names[2].url == L"http://crl.example/b.crl",
       "certificates: the names of a CRL distribution point, in order");
  that(!api().CertFindExtension("2.5.29.31", root).ok && value.ok &&
           !api().CryptDecodeObjectEx(platform::kEncodingX509Pkcs7, value.value.first(8)).ok,
       "certificates: a missing extension and half of one");
  std::array<wchar_t, 64> name{};
  const std::uint32_t length = api().CertGetNameStringW(leaf, platform::kNameRdn, name);
  that(std::wstring(name.data()) == L"O=mdDCT, CN=check.example" && length == 26,
       "certificates: the subject as X.500 writes it, and its length with the terminator");
}

// What the policy, whose name is a number, answers on a chain whose root is not trusted.
void policy(platform::NativeHandle root, platform::NativeHandle leaf) {
  const platform::StoreHandle store = std::move(api().CertOpenStore().value);
  api().CertAddCertificateContextToStore(store.get(), root, platform::kStoreAddReplaceExisting);
  const auto chain = api().CertGetCertificateChain(leaf, store.get(), {std::string("1.3.6.1.5.5.7.3.1")},
                                                   platform::kChainCacheOnlyUrlRetrieval);
  constexpr std::uint32_t any = platform::kChainPolicyAllowUnknownCa;
  const struct {
    const char* name;
    std::uint32_t allowed, checks;
    const wchar_t* server;
    std::uint32_t status;
  } rows[] = {{"root not trusted", 0, 0, L"", platform::kCertEUntrustedRoot},
              {"the right name", any, 0, L"CHECK.example", 0},
              {"a wrong name", any, 0, L"other.example", platform::kCertECnNoMatch},
              {"a wrong name forgiven", any, 0x1000, L"other.example", 0}};
  for (const auto& row : rows) {
    const platform::SslPolicy asked{row.allowed, platform::kAuthTypeServer, row.checks, row.server};
    const auto got = api().CertVerifyCertificateChainPolicy(platform::kChainPolicySsl, chain.value.get(), asked);
    that(got.ok && got.value == row.status, std::string("certificates: SSL policy, ") + row.name);
  }
}

}  // namespace

// CRLs: see the HTTPS client's tests.
void certificates() {
  encodings();
  const auto root = certificateFrom(kRoot);
  const auto leaf = certificateFrom(kLeaf);
  fields(root.get(), leaf.get());
  policy(root.get(), leaf.get());
}

}  // namespace check
