#include <string_view>
#include <vector>

#include "platform/digests.h"
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

// The digest as hex text, the data given in two pieces; the failing call's name otherwise.
std::string digestOf(const std::wstring& algorithm, std::string_view key, std::string_view data) {
  platform::Digests& digests = platform::current().digests;
  platform::AlgorithmProvider provider;
  const std::uint32_t flags = key.empty() ? 0 : platform::kBcryptAlgHandleHmacFlag;
  if (digests.BCryptOpenAlgorithmProvider(provider, algorithm, flags) < 0) {
    return "BCryptOpenAlgorithmProvider";
  }
  std::uint32_t objectLength = 0;
  std::uint32_t digestLength = 0;
  if (digests.BCryptGetProperty(provider.get(), L"ObjectLength", objectLength) < 0 ||
      digests.BCryptGetProperty(provider.get(), L"HashDigestLength", digestLength) < 0) {
    return "BCryptGetProperty";
  }
  std::vector<std::byte> object(objectLength);
  std::vector<std::byte> digest(digestLength);
  platform::HashHandle hash;
  if (digests.BCryptCreateHash(provider.get(), hash, object, bytesOf(key)) < 0) {
    return "BCryptCreateHash";
  }
  const std::size_t half = data.size() / 2;
  if (digests.BCryptHashData(hash.get(), bytesOf(data.substr(0, half))) < 0 ||
      digests.BCryptHashData(hash.get(), bytesOf(data.substr(half))) < 0) {
    return "BCryptHashData";
  }
  return digests.BCryptFinishHash(hash.get(), digest) < 0 ? "BCryptFinishHash" : hex(digest);
}

struct Answer {
  const char* name;
  const wchar_t* algorithm;
  std::string_view key;
  std::string_view data;
  std::string_view digest;
};

// FIPS 180-4 examples, RFC 1321 appendix A.5, RFC 4231 test case 2.
constexpr Answer kAnswers[] = {
    {"digests: SHA-256 of abc", L"SHA256", "", "abc",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"digests: SHA-256 of nothing", L"SHA256", "", "",
     "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"digests: MD5 of abc", L"MD5", "", "abc", "900150983cd24fb0d6963f7d28e17f72"},
    {"digests: HMAC-SHA-256", L"SHA256", "Jefe", "what do ya want for nothing?",
     "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
};

}  // namespace

void digests() {
  for (const Answer& answer : kAnswers) {
    const std::string digest = digestOf(answer.algorithm, answer.key, answer.data);
    if (!that(digest == answer.digest, answer.name)) {
      note("got " + digest);
    }
  }
  platform::Digests& digests = platform::current().digests;
  platform::AlgorithmProvider unknown;
  that(digests.BCryptOpenAlgorithmProvider(unknown, L"NONE", 0) < 0 && !unknown,
       "digests: an unknown algorithm gives a failure and no handle");

  platform::AlgorithmProvider provider;
  digests.BCryptOpenAlgorithmProvider(provider, L"SHA256", 0);
  std::uint32_t untouched = 77;
  that(digests.BCryptGetProperty(provider.get(), L"NoSuchProperty", untouched) < 0 && untouched == 77,
       "digests: a failed property leaves the output alone");
}

}  // namespace check
