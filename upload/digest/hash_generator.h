#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/digests.h"

/// Numbers of the algorithms; any other number counts as SHA-256.
namespace HashAlgorithm {
inline constexpr std::uint32_t kDefault = 0;  ///< the generator's default, SHA-256
inline constexpr std::uint32_t kSha256 = 1;
inline constexpr std::uint32_t kMd5 = 2;
}  // namespace HashAlgorithm

/// Numbers of the texts a digest can be turned into; for the bytes AB 01 they give:
namespace HashOutputFormat {
inline constexpr std::uint32_t Base64 = 0;         ///< qwE=
inline constexpr std::uint32_t HexUpper = 1;       ///< AB01
inline constexpr std::uint32_t HexUpperColon = 2;  ///< AB:01 (certificate thumbprints)
inline constexpr std::uint32_t HexLower = 3;       ///< ab01
inline constexpr std::uint32_t HexLowerColon = 4;  ///< ab:01
}  // namespace HashOutputFormat

/// Digests by the platform's cryptographic provider: SHA-256 and MD5, plain or keyed (HMAC, RFC 2104).
///
/// Create one, choose the algorithm, hash once or a few times, let it go. It owns the open algorithm provider and keeps
/// no data, key or digest. Failures are logged here, once each, and reported as false or as an empty text.
/// One thread at a time; each user has its own object.
class HashGenerator {
 public:
  /// Opens the provider for that algorithm, plain or keyed, unless the open one already is what is asked for.
  /// A failure is only logged: the next GenerateHash then tries the default algorithm.
  void SetAlgorithm(std::uint32_t algorithm, bool hmac);

  /// Digest of `dataLength` bytes; keyed when the provider was opened so.
  ///
  /// \param key  null for a plain digest; a key given to a plain generator is ignored with a warning. A generator
  ///             without an open provider opens the default one, keyed exactly when a key is given.
  /// \param digest  the raw digest (32 or 16 bytes). On false it is empty, or all zeros when only the last step failed.
  /// False, too, for data or a key of more than 4294967295 bytes: the platform takes lengths of 32 bits.
  bool GenerateHash(const std::byte* data, std::uint64_t dataLength, const std::byte* key, std::uint64_t keyLength,
                    std::vector<std::byte>& digest);

  /// The same for two texts, taken as they are; an empty key is no key. Nothing of the key is copied.
  bool GenerateHash(std::string_view data, std::string_view key, std::vector<std::byte>& digest);

  /// Text of a digest in one of the HashOutputFormat forms. Empty for an empty digest, and (with an error in the log)
  /// for an unknown format.
  /// \throws CORE::coreException "OutOfMem".
  static void FormatHash(const std::vector<std::byte>& digest, std::uint32_t format, std::string& text);

  /// GenerateHash and then FormatHash, whatever the first one said. Returns its result; on false the text means
  /// nothing.
  bool HashAndFormat(std::string_view data, std::string_view key, std::uint32_t format, std::string& text);

 private:
  bool openDefaultProvider(bool hmac);
  bool hashWith(std::span<std::byte> object, std::span<const std::byte> data, std::span<const std::byte> key,
                std::vector<std::byte>& digest);

  std::uint32_t defaultAlgorithm_ = HashAlgorithm::kSha256;
  bool hmac_ = false;
  platform::AlgorithmProvider provider_;
  std::uint32_t openedAlgorithm_ = 0;
};
