#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"

namespace platform {

/// NTSTATUS: a negative number is a failure.
using NtStatus = std::int32_t;

inline constexpr auto kNtStatusInvalidParameter = static_cast<NtStatus>(0xC000000D);  ///< STATUS_INVALID_PARAMETER

inline constexpr std::uint32_t kBcryptAlgHandleHmacFlag = 8;  ///< BCRYPT_ALG_HANDLE_HMAC_FLAG

void closeAlgorithmProvider(NativeHandle provider);
void closeHash(NativeHandle hash);

/// Owner of a BCRYPT_ALG_HANDLE, closed with BCryptCloseAlgorithmProvider.
using AlgorithmProvider = UniqueHandle<NullHandleTraits<NativeHandle, closeAlgorithmProvider>>;
/// Owner of a BCRYPT_HASH_HANDLE, destroyed with BCryptDestroyHash.
using HashHandle = UniqueHandle<NullHandleTraits<NativeHandle, closeHash>>;

/// Digests of the platform's cryptographic provider. Every operation is one platform call of that name and returns its
/// status; a call that fails leaves its outputs as they were. Any thread may call, but one thread at a time uses one
/// provider or hash.
class Digests {
 public:
  virtual ~Digests() = default;

  /// Opens the default implementation of an algorithm, "SHA256" or "MD5".
  virtual NtStatus BCryptOpenAlgorithmProvider(AlgorithmProvider& provider, const std::wstring& algorithm,
                                               std::uint32_t flags) = 0;
  virtual void BCryptCloseAlgorithmProvider(NativeHandle provider) = 0;
  /// Reads a property of four bytes: "ObjectLength" or "HashDigestLength", both in bytes.
  virtual NtStatus BCryptGetProperty(NativeHandle provider, const wchar_t* property, std::uint32_t& value) = 0;
  /// Makes a hash.
  /// \param object  memory that the hash lives in; the caller frees it after the hash.
  /// \param key     empty passes null.
  virtual NtStatus BCryptCreateHash(NativeHandle provider, HashHandle& hash, std::span<std::byte> object,
                                    std::span<const std::byte> key) = 0;
  virtual NtStatus BCryptHashData(NativeHandle hash, std::span<const std::byte> data) = 0;
  virtual NtStatus BCryptFinishHash(NativeHandle hash, std::span<std::byte> digest) = 0;
  virtual void BCryptDestroyHash(NativeHandle hash) = 0;
};

}  // namespace platform
