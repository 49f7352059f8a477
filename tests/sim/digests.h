#pragma once

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "platform/digests.h"
#include "tests/sim/kernel.h"

namespace sim {

/// "SHA256" and "MD5", plain or keyed, computed by OpenSSL. The program's memory for the hash is touched whenever
/// Windows would use it, so that the sanitizers notice when it is freed too early.
class Digests : public platform::Digests {
 public:
  explicit Digests(Kernel& kernel) : kernel_(kernel) {}

  static constexpr std::uint32_t kObjectLength = 286;  ///< the property "ObjectLength"

  NtStatus BCryptOpenAlgorithmProvider(AlgorithmProvider& provider, const std::wstring& algorithm,
                                       std::uint32_t flags) override {
    return ntStatus(kernel_.call(__func__, [&] {
      refuseIf(algorithm != L"MD5" && algorithm != L"SHA256", kNotFound);
      auto object = std::make_shared<Provider>();
      object->md5 = algorithm == L"MD5";
      object->keyed = (flags & kBcryptAlgHandleHmacFlag) != 0;
      provider = kernel_.opened<AlgorithmProvider>(object);
    }));
  }
  void BCryptCloseAlgorithmProvider(NativeHandle provider) override { kernel_.close<Provider>(__func__, provider); }
  NtStatus BCryptGetProperty(NativeHandle provider, const wchar_t* name, std::uint32_t& value) override {
    const std::wstring_view property = name;
    return ntStatus(kernel_.callOn<Provider>(__func__, provider, [&](Provider& object) {
      refuseIf(property != L"ObjectLength" && property != L"HashDigestLength", kNotFound);
      value = property == L"ObjectLength" ? kObjectLength : object.length();
    }));
  }
  NtStatus BCryptCreateHash(NativeHandle provider, HashHandle& hash, std::span<std::byte> object,
                            std::span<const std::byte> key) override {
    return ntStatus(kernel_.callOn<Provider>(__func__, provider, [&](Provider& algorithm) {
      refuseIf(object.size() < kObjectLength || (!key.empty() && !algorithm.keyed), kErrorInvalidParameter);
      auto result = std::make_shared<Hash>(object, algorithm);
      result->key.assign(key.begin(), key.end());
      hash = kernel_.opened<HashHandle>(result);
    }));
  }
  NtStatus BCryptHashData(NativeHandle hash, std::span<const std::byte> data) override {
    return ntStatus(kernel_.callOn<Hash>(__func__, hash, [&](Hash& object) {
      refuseIf(object.finished, kErrorInvalidHandle);
      object.touch();
      object.data.insert(object.data.end(), data.begin(), data.end());
    }));
  }
  NtStatus BCryptFinishHash(NativeHandle hash, std::span<std::byte> digest) override {
    return ntStatus(kernel_.callOn<Hash>(__func__, hash, [&](Hash& object) {
      refuseIf(object.finished || digest.size() != object.provider.length(), kErrorInvalidParameter);
      object.touch();
      object.finished = true;
      compute(object, digest);
    }));
  }
  void BCryptDestroyHash(NativeHandle hash) override { kernel_.close<Hash>(__func__, hash); }

 private:
  static constexpr ErrorCode kNotFound = 0x225;

  struct Provider : Object {
    const char* kind() const override { return "BCrypt provider"; }
    bool md5 = false;
    bool keyed = false;
    std::uint32_t length() const { return md5 ? 16 : 32; }
  };
  /// A hash keeps its input until it is finished.
  struct Hash : Object {
    Hash(std::span<std::byte> lent, const Provider& by) : object(lent), provider(by) { touch(); }
    ~Hash() override { touch(); }
    const char* kind() const override { return "BCrypt hash"; }
    /// Uses the program's memory, in which the hash of Windows lives.
    void touch() {
      object.front() ^= std::byte{0xFF};
      object.back() ^= std::byte{0xFF};
    }
    const std::span<std::byte> object;
    const Provider provider;
    std::vector<std::byte> key;
    std::vector<std::byte> data;
    bool finished = false;
  };

  /// Returns the NTSTATUS of a failure, which has the two top bits set.
  static NtStatus ntStatus(Status status) { return status.ok ? 0 : static_cast<NtStatus>(status.error | 0xC0000000); }
  static void compute(const Hash& hash, std::span<std::byte> digest) {
    const EVP_MD* const algorithm = hash.provider.md5 ? EVP_md5() : EVP_sha256();
    const auto* const data = reinterpret_cast<const unsigned char*>(hash.data.data());
    auto* const out = reinterpret_cast<unsigned char*>(digest.data());
    if (hash.provider.keyed) {
      const void* const key = hash.key.empty() ? "" : static_cast<const void*>(hash.key.data());  // null: no key
      HMAC(algorithm, key, static_cast<int>(hash.key.size()), data, hash.data.size(), out, nullptr);
    } else {
      EVP_Digest(data, hash.data.size(), out, nullptr, algorithm, nullptr);
    }
  }

  Kernel& kernel_;
};

}  // namespace sim
