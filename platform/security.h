#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kTokenQuery = 8;               ///< TOKEN_QUERY
inline constexpr std::uint32_t kTokenUser = 1;                ///< TOKEN_INFORMATION_CLASS::TokenUser
inline constexpr std::uint32_t kSecurityLocalSystemRid = 18;  ///< SECURITY_LOCAL_SYSTEM_RID

using SidIdentifierAuthority = std::array<std::uint8_t, 6>;
inline constexpr SidIdentifierAuthority kSecurityNtAuthority = {0, 0, 0, 0, 0, 5};  ///< SECURITY_NT_AUTHORITY

/// Layout of TOKEN_USER, which GetTokenInformation writes to the beginning of its buffer.
struct TokenUser {
  NativeHandle sid;  ///< points into that buffer
  std::uint32_t attributes;
};

void closeSid(NativeHandle sid);
void freeSecurityDescriptor(NativeHandle descriptor);

/// Owner of an identifier made by AllocateAndInitializeSid, freed with FreeSid.
using Sid = UniqueHandle<NullHandleTraits<NativeHandle, closeSid>>;

/// Owner of a security descriptor made from text, freed with LocalFree.
using SecurityDescriptor = UniqueHandle<NullHandleTraits<NativeHandle, freeSecurityDescriptor>>;

/// Tokens, security identifiers and descriptors. Every operation is one platform call of that name; any thread may
/// call.
class Security {
 public:
  virtual ~Security() = default;

  virtual Result<KernelHandle> OpenProcessToken(NativeHandle process, std::uint32_t access) = 0;
  /// Reads information of that class (kTokenUser) about a token.
  /// \param buffer  aligned for pointers; empty passes none.
  /// \return the length in bytes that the platform reports, also on failure.
  virtual Result<std::uint32_t> GetTokenInformation(NativeHandle token, std::uint32_t informationClass,
                                                    std::span<std::byte> buffer) = 0;
  /// Makes an identifier.
  /// \param subAuthorities  one to eight numbers.
  virtual Result<Sid> AllocateAndInitializeSid(const SidIdentifierAuthority& authority,
                                               std::span<const std::uint32_t> subAuthorities) = 0;
  virtual bool EqualSid(NativeHandle first, NativeHandle second) = 0;
  virtual void FreeSid(NativeHandle sid) = 0;
  /// Makes a descriptor from its text form (SDDL, revision 1).
  virtual Result<SecurityDescriptor> ConvertStringSecurityDescriptorToSecurityDescriptorW(const std::wstring& text) = 0;
  /// Frees such a descriptor with LocalFree.
  virtual void freeDescriptor(NativeHandle descriptor) = 0;
};

}  // namespace platform
