#pragma once

#include "platform/security.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsSecurity final : public Security {
 public:
  Result<KernelHandle> OpenProcessToken(NativeHandle process, std::uint32_t access) override;
  Result<std::uint32_t> GetTokenInformation(NativeHandle token, std::uint32_t informationClass,
                                            std::span<std::byte> buffer) override;
  Result<Sid> AllocateAndInitializeSid(const SidIdentifierAuthority& authority,
                                       std::span<const std::uint32_t> subAuthorities) override;
  bool EqualSid(NativeHandle first, NativeHandle second) override;
  void FreeSid(NativeHandle sid) override;
  Result<SecurityDescriptor> ConvertStringSecurityDescriptorToSecurityDescriptorW(const std::wstring& text) override;
  void freeDescriptor(NativeHandle descriptor) override;
};

}  // namespace platform
