#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/digests.h"

/// The numbers of the algorithms; any other number counts as SHA-256.
/// kept: the program does not use MD5, but its number is fixed.
namespace HashAlgorithm {
inline constexpr std::uint32_t kDefault = 0;  ///< the generator's default, SHA-256
inline constexpr std::uint32_t kSha256 = 1;
inline constexpr std::uint32_t kMd5 = 2;
}  // namespace HashAlgorithm

/// The numbers of the text forms of a digest, each with what it makes of the bytes AB 01.
/// kept: the program does not use HexUpper, HexLower and HexLowerColon, but their numbers are fixed.
namespace HashOutputFormat {
inline constexpr std::uint32_t Base64 = 0;         ///< qwE=
inline constexpr std::uint32_t HexUpper = 1;       ///< AB01
inline constexpr std::uint32_t HexUpperColon = 2;  ///< AB:01 (certificate thumbprints)
inline constexpr std::uint32_t HexLower = 3;       ///< ab01
inline constexpr std::uint32_t HexLowerColon = 4;  ///< ab:01
}  // namespace HashOutputFormat

/// Computes digests with the platform's cryptographic provider: SHA-256 and MD5, plain or keyed (HMAC, RFC 2104).
///
/// An object is used for one digest or a few, and then destroyed. It owns the open algorithm provider and keeps no
/// data, no key and no digest. Each failure is logged once, here, and reported as false or as an empty text. One thread
/// at a time uses an object.
class HashGenerator {
 public:
  /// Opens the provider for an algorithm, unless it is open already. A failure is only logged: the next GenerateHash
  /// then opens the default algorithm.
  /// \param algorithm  a number of HashAlgorithm.
  /// \param hmac  whether the digests will be keyed.
  void SetAlgorithm(std::uint32_t algorithm, bool hmac);

  /// Computes the digest of `dataLength` bytes, keyed when the provider was opened for that. A generator without an
  /// open provider opens the default one first, keyed if there is a key.
  /// \param key  null for a plain digest. A plain generator ignores a key, with a warning.
  /// \param digest  receives the raw digest (32 or 16 bytes). On failure it is empty, or all zeros when only the last
  ///                step failed.
  /// \return false on failure, and for data or a key of more than 4294967295 bytes: the platform takes lengths of 32
  ///         bits.
  bool GenerateHash(const std::byte* data, std::uint64_t dataLength, const std::byte* key, std::uint64_t keyLength,
                    std::vector<std::byte>& digest);

  /// Computes the digest of the bytes of a text. An empty key is no key. Nothing of the key is copied.
  bool GenerateHash(std::string_view data, std::string_view key, std::vector<std::byte>& digest);

  /// Writes a digest as a text.
  /// \param format  a number of HashOutputFormat.
  /// \param text  is replaced. It is empty for an empty digest, and, with an error in the log, for an unknown format.
  /// \throws CORE::coreException "OutOfMem".
  static void FormatHash(const std::vector<std::byte>& digest, std::uint32_t format, std::string& text);

  /// Calls GenerateHash and then FormatHash, even when the first one failed.
  /// \return the result of GenerateHash; on false the text means nothing.
  bool HashAndFormat(std::string_view data, std::string_view key, std::uint32_t format, std::string& text);

 private:
  bool openDefaultProvider(bool hmac);
  bool hashWith(std::span<std::byte> object, std::span<const std::byte> data, std::span<const std::byte> key,
                std::vector<std::byte>& digest);

  std::uint32_t defaultAlgorithm_ = HashAlgorithm::kSha256;
  bool hmac_ = false;
  platform::AlgorithmProvider provider_;
  std::uint32_t openedAlgorithm_ = 0;  ///< a number of HashAlgorithm; 0 before the first SetAlgorithm
};
