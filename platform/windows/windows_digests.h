#pragma once

#include "platform/digests.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsDigests final : public Digests {
 public:
  NtStatus BCryptOpenAlgorithmProvider(AlgorithmProvider& provider, const std::wstring& algorithm,
                                       std::uint32_t flags) override;
  void BCryptCloseAlgorithmProvider(NativeHandle provider) override;
  NtStatus BCryptGetProperty(NativeHandle provider, const wchar_t* property, std::uint32_t& value) override;
  NtStatus BCryptCreateHash(NativeHandle provider, HashHandle& hash, std::span<std::byte> object,
                            std::span<const std::byte> key) override;
  NtStatus BCryptHashData(NativeHandle hash, std::span<const std::byte> data) override;
  NtStatus BCryptFinishHash(NativeHandle hash, std::span<std::byte> digest) override;
  void BCryptDestroyHash(NativeHandle hash) override;
};

}  // namespace platform
