#include "platform/digests.h"

#include <vector>

#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

std::string hex(std::span<const std::byte> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += {kDigits[std::to_integer<int>(byte) >> 4], kDigits[std::to_integer<int>(byte) & 15]};
  }
  return text;
}

// The digest of the data, given in two pieces, as hex text; empty when a call failed.
std::string digestOf(const std::wstring& algorithm, std::string_view key, std::string_view data) {
  platform::Digests& digests = platform::current().digests;
  platform::AlgorithmProvider provider;
  const std::uint32_t flags = key.empty() ? 0 : platform::kBcryptAlgHandleHmacFlag;
  std::uint32_t objectLength = 0;
  std::uint32_t digestLength = 0;
  if (digests.BCryptOpenAlgorithmProvider(provider, algorithm, flags) < 0 ||
      digests.BCryptGetProperty(provider.get(), L"ObjectLength", objectLength) < 0 ||
      digests.BCryptGetProperty(provider.get(), L"HashDigestLength", digestLength) < 0) {
    return {};
  }
  std::vector<std::byte> object(objectLength);
  std::vector<std::byte> digest(digestLength);
  platform::HashHandle hash;
  const bool done = digests.BCryptCreateHash(provider.get(), hash, object, bytesOf(key)) >= 0 &&
                    digests.BCryptHashData(hash.get(), bytesOf(data.substr(0, 1))) >= 0 &&
                    digests.BCryptHashData(hash.get(), bytesOf(data.substr(1))) >= 0 &&
                    digests.BCryptFinishHash(hash.get(), digest) >= 0;
  return done ? hex(digest) : std::string();
}

}  // namespace

// FIPS 180-4, RFC 1321 appendix A.5, RFC 4231 test case 2.
void digests() {
  that(digestOf(L"SHA256", "", "abc") == "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
       "digests: SHA-256");
  that(digestOf(L"MD5", "", "abc") == "900150983cd24fb0d6963f7d28e17f72", "digests: MD5");
  that(digestOf(L"SHA256", "Jefe", "what do ya want for nothing?") ==
           "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
       "digests: HMAC-SHA-256");
}

}  // namespace check
