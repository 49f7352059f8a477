#pragma once

#include "platform/digests.h"
#include "tests/sim/kernel.h"

namespace sim {

/// "SHA256" and "MD5", plain or keyed, computed by OpenSSL. The hash object that the program lends is touched whenever
/// the platform would, so that the sanitizers see one that is freed too early.
class Digests : public platform::Digests {
 public:
  explicit Digests(Kernel& kernel) : kernel_(kernel) {}

  /// What "ObjectLength" says.
  std::uint32_t objectLength = 286;

  platform::NtStatus BCryptOpenAlgorithmProvider(platform::AlgorithmProvider& provider, const std::wstring& algorithm,
                                                 std::uint32_t flags) override;
  void BCryptCloseAlgorithmProvider(platform::NativeHandle provider) override;
  platform::NtStatus BCryptGetProperty(platform::NativeHandle provider, const std::wstring& property,
                                       std::uint32_t& value) override;
  platform::NtStatus BCryptCreateHash(platform::NativeHandle provider, platform::HashHandle& hash,
                                      std::span<std::byte> object, std::span<const std::byte> key) override;
  platform::NtStatus BCryptHashData(platform::NativeHandle hash, std::span<const std::byte> data) override;
  platform::NtStatus BCryptFinishHash(platform::NativeHandle hash, std::span<std::byte> digest) override;
  void BCryptDestroyHash(platform::NativeHandle hash) override;

 private:
  struct Provider;
  struct Hash;
  Kernel& kernel_;
};

/// The SHA-256 of some bytes in lower-case hexadecimal, fed in pieces.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  void add(std::span<const std::byte> data);
  std::string hex() const;

 private:
  void* context_;
};

}  // namespace sim
