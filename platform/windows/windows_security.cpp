#include "platform/windows/windows_security.h"

#include <algorithm>

#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <sddl.h>

namespace platform {

static_assert(kTokenQuery == TOKEN_QUERY);
static_assert(kTokenUser == static_cast<std::uint32_t>(TOKEN_INFORMATION_CLASS::TokenUser));
static_assert(kSecurityLocalSystemRid == SECURITY_LOCAL_SYSTEM_RID);
static_assert(sizeof(TokenUser) == sizeof(TOKEN_USER));
static_assert(offsetof(TokenUser, sid) == offsetof(TOKEN_USER, User.Sid));
static_assert(offsetof(TokenUser, attributes) == offsetof(TOKEN_USER, User.Attributes));
static_assert(sizeof(SidIdentifierAuthority) == sizeof(SID_IDENTIFIER_AUTHORITY));

namespace {

constexpr bool isNtAuthority() {
  const SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  return std::equal(kSecurityNtAuthority.begin(), kSecurityNtAuthority.end(), authority.Value);
}
static_assert(isNtAuthority());

}  // namespace

Result<KernelHandle> WindowsSecurity::OpenProcessToken(NativeHandle process, std::uint32_t access) {
  HANDLE token = nullptr;
  const BOOL opened = ::OpenProcessToken(process, access, &token);
  const ErrorCode error = ::GetLastError();
  return {opened != FALSE, KernelHandle(token), error};
}

Result<std::uint32_t> WindowsSecurity::GetTokenInformation(NativeHandle token, std::uint32_t informationClass,
                                                           std::span<std::byte> buffer) {
  DWORD length = 0;
  void* const data = buffer.empty() ? nullptr : buffer.data();
  const BOOL read = ::GetTokenInformation(token, static_cast<TOKEN_INFORMATION_CLASS>(informationClass), data,
                                          atMostDword(buffer.size()), &length);
  const ErrorCode error = ::GetLastError();
  return {read != FALSE, length, error};
}

Result<Sid> WindowsSecurity::AllocateAndInitializeSid(const SidIdentifierAuthority& authority,
                                                      std::span<const std::uint32_t> subAuthorities) {
  SID_IDENTIFIER_AUTHORITY identifier{};
  std::copy(authority.begin(), authority.end(), identifier.Value);
  std::array<DWORD, 8> parts{};
  std::copy_n(subAuthorities.begin(), std::min(subAuthorities.size(), parts.size()), parts.begin());
  const auto count = static_cast<BYTE>(std::min<std::size_t>(subAuthorities.size(), 0xFF));  // over 8 are refused
  PSID sid = nullptr;
  const BOOL made = ::AllocateAndInitializeSid(&identifier, count, parts[0], parts[1], parts[2], parts[3], parts[4],
                                               parts[5], parts[6], parts[7], &sid);
  const ErrorCode error = ::GetLastError();
  return {made != FALSE, Sid(sid), error};
}

bool WindowsSecurity::EqualSid(NativeHandle first, NativeHandle second) { return ::EqualSid(first, second) != FALSE; }

void WindowsSecurity::FreeSid(NativeHandle sid) { ::FreeSid(sid); }

Result<SecurityDescriptor> WindowsSecurity::ConvertStringSecurityDescriptorToSecurityDescriptorW(
    const std::wstring& text) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const BOOL made =
      ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr);
  const ErrorCode error = ::GetLastError();
  return {made != FALSE, SecurityDescriptor(descriptor), error};
}

void WindowsSecurity::freeDescriptor(NativeHandle descriptor) { ::LocalFree(descriptor); }

}  // namespace platform
