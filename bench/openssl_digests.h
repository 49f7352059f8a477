#pragma once

#include <openssl/evp.h>
#include <openssl/params.h>

#include <memory>

#include "platform/digests.h"

namespace bench {

/// Returns a new context for HMAC-SHA-256, without a key.
inline EVP_MAC_CTX* newMacContext() {
  static EVP_MAC* const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  static EVP_MAC_CTX* const ready = [] {
    EVP_MAC_CTX* const made = EVP_MAC_CTX_new(mac);
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string("digest", digest, 0), OSSL_PARAM_construct_end()};
    EVP_MAC_CTX_set_params(made, parameters);
    return made;
  }();
  return EVP_MAC_CTX_dup(ready);
}

/// Returns SHA-256, which is fetched once.
inline const EVP_MD* sha256() {
  static const EVP_MD* const digest = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  return digest;
}

/// SHA-256, plain or keyed, computed by OpenSSL. So a measurement beside OpenSSL shows the caller's own share.
class OpensslDigests : public platform::Digests {
 public:
  platform::NtStatus BCryptOpenAlgorithmProvider(platform::AlgorithmProvider& provider, const std::wstring&,
                                                 std::uint32_t flags) override {
    provider = platform::AlgorithmProvider((flags & platform::kBcryptAlgHandleHmacFlag) != 0 ? &keyed_ : &plain_);
    return 0;
  }
  void BCryptCloseAlgorithmProvider(platform::NativeHandle) override {}
  platform::NtStatus BCryptGetProperty(platform::NativeHandle, const wchar_t* property, std::uint32_t& value) override {
    value = property[0] == L'O' ? 286 : 32;  // ObjectLength, HashDigestLength
    return 0;
  }
  platform::NtStatus BCryptCreateHash(platform::NativeHandle provider, platform::HashHandle& hash,
                                      std::span<std::byte> object, std::span<const std::byte> key) override {
    auto* const made = new (object.data()) Hash;  // the caller gives that memory for it
    if (provider == &keyed_) {
      made->keyed = newMacContext();
      EVP_MAC_init(made->keyed, reinterpret_cast<const unsigned char*>(key.data()), key.size(), nullptr);
    } else {
      made->plain = EVP_MD_CTX_new();
      EVP_DigestInit_ex(made->plain, sha256(), nullptr);
    }
    hash = platform::HashHandle(made);
    return 0;
  }
  platform::NtStatus BCryptHashData(platform::NativeHandle handle, std::span<const std::byte> data) override {
    const Hash& hash = *static_cast<Hash*>(handle);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
    const int done = hash.keyed != nullptr ? EVP_MAC_update(hash.keyed, bytes, data.size())
                                           : EVP_DigestUpdate(hash.plain, bytes, data.size());
    return done == 1 ? 0 : -1;
  }
  platform::NtStatus BCryptFinishHash(platform::NativeHandle handle, std::span<std::byte> digest) override {
    const Hash& hash = *static_cast<Hash*>(handle);
    auto* const out = reinterpret_cast<unsigned char*>(digest.data());
    const int done = hash.keyed != nullptr ? EVP_MAC_final(hash.keyed, out, nullptr, digest.size())
                                           : EVP_DigestFinal_ex(hash.plain, out, nullptr);
    return done == 1 ? 0 : -1;
  }
  void BCryptDestroyHash(platform::NativeHandle handle) override { static_cast<Hash*>(handle)->~Hash(); }

 private:
  struct Hash {
    Hash() = default;
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;
    ~Hash() {
      EVP_MAC_CTX_free(keyed);
      EVP_MD_CTX_free(plain);
    }
    EVP_MAC_CTX* keyed = nullptr;
    EVP_MD_CTX* plain = nullptr;
  };
  // Their addresses tell the two providers apart.
  int plain_ = 0;
  int keyed_ = 0;
};

}  // namespace bench
