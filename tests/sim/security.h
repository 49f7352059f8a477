#pragma once

#include <cstring>

#include "platform/security.h"
#include "tests/sim/kernel.h"

namespace sim {

/// What the handle of a security descriptor refers to.
struct DescriptorMemory : Object {
  explicit DescriptorMemory(std::wstring definition) : text(std::move(definition)) {}
  const char* kind() const override { return "security descriptor"; }
  const std::wstring text;
};

/// Tokens, identifiers and descriptors. Identifiers have the binary layout of Windows.
class Security : public platform::Security {
 public:
  explicit Security(Kernel& kernel) : kernel_(kernel) {}

  /// Whether the process runs under the local system account; if not, it runs under an ordinary user's.
  bool localSystem = true;

  Result<KernelHandle> OpenProcessToken(NativeHandle process, std::uint32_t access) override {
    return kernel_.call(__func__, [&] {
      refuseIf(process != invalidHandleValue(), kErrorInvalidHandle);  // what GetCurrentProcess returns
      refuseIf(access != kTokenQuery, kErrorAccessDenied);
      return kernel_.opened(std::make_shared<Token>());
    });
  }
  Result<std::uint32_t> GetTokenInformation(NativeHandle token, std::uint32_t informationClass,
                                            std::span<std::byte> buffer) override {
    return kernel_.callOn<Token>(__func__, token, [&](Token&) -> Result<std::uint32_t> {
      const auto address = reinterpret_cast<std::uintptr_t>(buffer.data());
      refuseIf(informationClass != kTokenUser || address % alignof(TokenUser) != 0, kErrorInvalidParameter);
      const std::vector<std::uint32_t> system{kSecurityLocalSystemRid};
      const std::vector<std::uint32_t> user{21, 1004336348, 1177238915, 682003330, 1001};
      const auto sid = makeSid(kSecurityNtAuthority, localSystem ? system : user);
      const auto needed = static_cast<std::uint32_t>(sizeof(TokenUser) + sid.size());
      if (buffer.size() < needed) {
        return {false, needed, kErrorInsufficientBuffer};
      }
      std::byte* const place = buffer.data() + sizeof(TokenUser);
      const TokenUser information{place, 0};
      std::memcpy(buffer.data(), &information, sizeof(information));
      std::ranges::copy(sid, place);
      return {true, needed, 0};
    });
  }
  Result<Sid> AllocateAndInitializeSid(const SidIdentifierAuthority& authority,
                                       std::span<const std::uint32_t> subAuthorities) override {
    return kernel_.call(__func__, [&] {
      auto sid = std::make_shared<SidMemory>();
      sid->bytes = makeSid(authority, subAuthorities);
      void* const memory = sid->bytes.data();
      return Sid(kernel_.add(std::move(sid), memory));
    });
  }
  bool EqualSid(NativeHandle first, NativeHandle second) override {
    const auto* const one = static_cast<const std::uint8_t*>(first);
    const auto* const other = static_cast<const std::uint8_t*>(second);
    return !kernel_.faults.pass(__func__) && one[1] == other[1] && std::memcmp(one, other, 8u + 4u * one[1]) == 0;
  }
  void FreeSid(NativeHandle sid) override { kernel_.close<SidMemory>(__func__, sid); }
  Result<SecurityDescriptor> ConvertStringSecurityDescriptorToSecurityDescriptorW(const std::wstring& text) override {
    return kernel_.call(__func__,
                        [&] { return kernel_.opened<SecurityDescriptor>(std::make_shared<DescriptorMemory>(text)); });
  }
  void freeDescriptor(NativeHandle descriptor) override { kernel_.close<DescriptorMemory>(__func__, descriptor); }

 private:
  struct Token : KernelObject {
    const char* kind() const override { return "token"; }
  };
  struct SidMemory : Object {
    const char* kind() const override { return "SID"; }
    std::vector<std::byte> bytes;
  };

  /// Makes a SID in its binary layout: revision, count, six bytes of authority, the sub-authorities (little endian).
  static std::vector<std::byte> makeSid(const SidIdentifierAuthority& authority, std::span<const std::uint32_t> parts) {
    std::vector<std::byte> sid{std::byte{1}, static_cast<std::byte>(parts.size())};
    const auto head = std::as_bytes(std::span(authority));
    sid.insert(sid.end(), head.begin(), head.end());
    const auto bytes = std::as_bytes(parts);
    sid.insert(sid.end(), bytes.begin(), bytes.end());
    return sid;
  }

  Kernel& kernel_;
};

}  // namespace sim
