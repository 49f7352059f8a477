#include "platform/windows/windows_digests.h"

#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <bcrypt.h>

namespace platform {

static_assert(kBcryptAlgHandleHmacFlag == BCRYPT_ALG_HANDLE_HMAC_FLAG);
static_assert(std::is_same_v<BCRYPT_ALG_HANDLE, NativeHandle> && std::is_same_v<BCRYPT_HASH_HANDLE, NativeHandle>);
static_assert(sizeof(NTSTATUS) == sizeof(NtStatus) && std::is_signed_v<NTSTATUS>);
static_assert(kNtStatusInvalidParameter == static_cast<NtStatus>(STATUS_INVALID_PARAMETER));

namespace {

// BCrypt takes its inputs through pointers to non-const, but only reads them.
PUCHAR inputBytes(std::span<const std::byte> data) {
  return data.empty() ? nullptr : reinterpret_cast<PUCHAR>(const_cast<std::byte*>(data.data()));
}

PUCHAR outputBytes(std::span<std::byte> data) { return data.empty() ? nullptr : reinterpret_cast<PUCHAR>(data.data()); }

}  // namespace

NtStatus WindowsDigests::BCryptOpenAlgorithmProvider(AlgorithmProvider& provider, const std::wstring& algorithm,
                                                     std::uint32_t flags) {
  BCRYPT_ALG_HANDLE handle = nullptr;
  const NTSTATUS status = ::BCryptOpenAlgorithmProvider(&handle, algorithm.c_str(), nullptr, flags);
  if (status >= 0) {
    provider.reset(handle);
  }
  return status;
}

void WindowsDigests::BCryptCloseAlgorithmProvider(NativeHandle provider) {
  ::BCryptCloseAlgorithmProvider(provider, 0);
}

NtStatus WindowsDigests::BCryptGetProperty(NativeHandle provider, const wchar_t* property, std::uint32_t& value) {
  DWORD read = 0;
  ULONG size = 0;
  const NTSTATUS status =
      ::BCryptGetProperty(provider, property, reinterpret_cast<PUCHAR>(&read), sizeof(read), &size, 0);
  if (status >= 0) {
    value = read;
  }
  return status;
}

NtStatus WindowsDigests::BCryptCreateHash(NativeHandle provider, HashHandle& hash, std::span<std::byte> object,
                                          std::span<const std::byte> key) {
  if (!fitsDword(object.size()) || !fitsDword(key.size())) {
    return kNtStatusInvalidParameter;
  }
  BCRYPT_HASH_HANDLE handle = nullptr;
  const NTSTATUS status = ::BCryptCreateHash(provider, &handle, outputBytes(object), static_cast<ULONG>(object.size()),
                                             inputBytes(key), static_cast<ULONG>(key.size()), 0);
  if (status >= 0) {
    hash.reset(handle);
  }
  return status;
}

NtStatus WindowsDigests::BCryptHashData(NativeHandle hash, std::span<const std::byte> data) {
  if (!fitsDword(data.size())) {
    return kNtStatusInvalidParameter;
  }
  return ::BCryptHashData(hash, inputBytes(data), static_cast<ULONG>(data.size()), 0);
}

NtStatus WindowsDigests::BCryptFinishHash(NativeHandle hash, std::span<std::byte> digest) {
  if (!fitsDword(digest.size())) {
    return kNtStatusInvalidParameter;
  }
  return ::BCryptFinishHash(hash, outputBytes(digest), static_cast<ULONG>(digest.size()), 0);
}

void WindowsDigests::BCryptDestroyHash(NativeHandle hash) { ::BCryptDestroyHash(hash); }

}  // namespace platform
