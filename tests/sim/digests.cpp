// The arithmetic of the simulated digests.
#include "tests/sim/digests.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

namespace sim {

void Digests::compute(const Hash& hash, std::span<std::byte> digest) {
  const EVP_MD* const algorithm = hash.provider.md5 ? EVP_md5() : EVP_sha256();
  const auto* const data = reinterpret_cast<const unsigned char*>(hash.data.data());
  auto* const out = reinterpret_cast<unsigned char*>(digest.data());
  if (hash.provider.keyed) {
    const void* const key = hash.key.empty() ? "" : static_cast<const void*>(hash.key.data());  // null would be no key
    HMAC(algorithm, key, static_cast<int>(hash.key.size()), data, hash.data.size(), out, nullptr);
  } else {
    EVP_Digest(data, hash.data.size(), out, nullptr, algorithm, nullptr);
  }
}

Sha256::Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
  EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr);
}

void Sha256::add(std::span<const std::byte> data) { EVP_DigestUpdate(context_.get(), data.data(), data.size()); }

std::string Sha256::hex() const {
  const Sha256 copy;
  EVP_MD_CTX_copy_ex(copy.context_.get(), context_.get());
  std::array<unsigned char, 32> digest{};
  EVP_DigestFinal_ex(copy.context_.get(), digest.data(), nullptr);
  std::string text;
  for (const unsigned char value : digest) {
    text += {"0123456789abcdef"[value >> 4], "0123456789abcdef"[value & 15]};
  }
  return text;
}

}  // namespace sim
