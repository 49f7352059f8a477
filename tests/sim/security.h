#pragma once

#include "platform/security.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Tokens and identifiers. Identifiers are made in the platform's own binary layout.
class Security : public platform::Security {
 public:
  explicit Security(Kernel& kernel) : kernel_(kernel) {}

  /// Whether the process runs as the local system account; otherwise as an ordinary user.
  bool localSystem = true;

  platform::Result<platform::KernelHandle> OpenProcessToken(platform::NativeHandle process,
                                                            std::uint32_t access) override;
  platform::Result<std::uint32_t> GetTokenInformation(platform::NativeHandle token, std::uint32_t informationClass,
                                                      std::span<std::byte> buffer) override;
  platform::Result<platform::Sid> AllocateAndInitializeSid(const platform::SidIdentifierAuthority& authority,
                                                           std::span<const std::uint32_t> subAuthorities) override;
  bool EqualSid(platform::NativeHandle first, platform::NativeHandle second) override;
  void FreeSid(platform::NativeHandle sid) override;

 private:
  struct Token;
  struct SidMemory;
  Kernel& kernel_;
};

}  // namespace sim
