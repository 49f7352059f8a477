#include "upload/digest/hash_generator.h"

#include <limits>

#include "core/base/memory_guard.h"
#include "core/format/format.h"
#include "core/log/log.h"
#include "core/text/corestring.h"
#include "platform/heap.h"
#include "platform/platform.h"
#include "upload/digest/base64.h"

namespace {

constexpr std::uint64_t kMaxInputBytes = std::numeric_limits<std::uint32_t>::max();

constexpr bool failed(platform::NtStatus status) { return status < 0; }

platform::Digests& digests() { return platform::current().digests; }

/// A block of the process heap. It is overwritten before it is freed, because the object of a keyed hash holds key
/// material.
class HeapBlock {
 public:
  explicit HeapBlock(std::size_t bytes)
      : heap_(platform::current().heap.GetProcessHeap()),
        memory_(heap_ == nullptr ? nullptr : platform::current().heap.HeapAlloc(heap_, bytes)),
        bytes_(bytes) {}
  HeapBlock(const HeapBlock&) = delete;
  HeapBlock& operator=(const HeapBlock&) = delete;
  ~HeapBlock() {
    if (memory_ != nullptr) {
      CORE::wipe(memory_, bytes_);
      platform::current().heap.HeapFree(heap_, memory_);
    }
  }

  explicit operator bool() const { return memory_ != nullptr; }
  std::span<std::byte> bytes() const { return {static_cast<std::byte*>(memory_), bytes_}; }

 private:
  platform::NativeHandle heap_;
  void* memory_;
  std::size_t bytes_;
};

std::string hexText(const std::vector<std::byte>& digest, bool upper, bool colons) {
  std::string text;
  text.reserve(digest.size() * 3);
  for (const std::byte value : digest) {
    const auto number = std::to_integer<std::uint32_t>(value);
    text += upper ? CORE::formatNarrow("%02X", number) : CORE::formatNarrow("%02x", number);
    if (colons) {
      text += ':';
    }
  }
  if (colons) {
    text.pop_back();
  }
  return text;
}

std::string base64Text(const std::vector<std::byte>& digest) {
  std::string text;
  base64Encode({reinterpret_cast<const char*>(digest.data()), digest.size()}, text);
  return text;
}

}  // namespace

void HashGenerator::SetAlgorithm(std::uint32_t algorithm, bool hmac) {
  const std::uint32_t requested = algorithm == HashAlgorithm::kDefault ? defaultAlgorithm_ : algorithm;
  // kept: an unknown number is opened and recorded as SHA-256, so it never matches here and reopens every time.
  if (provider_ && openedAlgorithm_ == requested && hmac_ == hmac) {
    CORE::log(CORE::kTrace, L"HashGenerator::SetAlgorithm(): Already opened the algorithm provider");
    return;
  }
  provider_.reset();
  hmac_ = hmac;
  openedAlgorithm_ = requested == HashAlgorithm::kMd5 ? HashAlgorithm::kMd5 : HashAlgorithm::kSha256;
  const platform::NtStatus status =
      digests().BCryptOpenAlgorithmProvider(provider_, openedAlgorithm_ == HashAlgorithm::kMd5 ? L"MD5" : L"SHA256",
                                            hmac ? platform::kBcryptAlgHandleHmacFlag : 0);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::SetAlgorithm(): BCryptOpenAlgorithmProvider failed: 0x%x", status);
  }
}

bool HashGenerator::openDefaultProvider(bool hmac) {
  CORE::log(CORE::kWarn, L"HashGenerator::GenerateHash(): Hash algorithm not chosen, using defaults");
  SetAlgorithm(defaultAlgorithm_, hmac);
  if (!provider_) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): Failed to open algorithm provider");
    return false;
  }
  return true;
}

bool HashGenerator::GenerateHash(const std::byte* data, std::uint64_t dataLength, const std::byte* key,
                                 std::uint64_t keyLength, std::vector<std::byte>& digest) {
  digest.clear();
  if (hmac_ && key == nullptr) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): Unable to perform HMAC without a key");
    return false;
  }
  if (!hmac_ && key != nullptr) {
    CORE::log(CORE::kWarn, L"HashGenerator::GenerateHash(): HMAC not selected, but key was given.");
  }
  if (!provider_ && !openDefaultProvider(key != nullptr)) {
    return false;
  }
  std::uint32_t objectLength = 0;
  const platform::NtStatus status = digests().BCryptGetProperty(provider_.get(), L"ObjectLength", objectLength);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): BCryptGetProperty (Object Length) failed: 0x%x", status);
    return false;
  }
  const HeapBlock object(objectLength);
  if (!object) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): HeapAlloc (Hash Object) failed");
    return false;
  }
  return hashWith(object.bytes(), {data, static_cast<std::size_t>(dataLength)},
                  {hmac_ ? key : nullptr, static_cast<std::size_t>(hmac_ ? keyLength : 0)}, digest);
}

bool HashGenerator::hashWith(std::span<std::byte> object, std::span<const std::byte> data,
                             std::span<const std::byte> key, std::vector<std::byte>& digest) {
  std::uint32_t digestLength = 0;
  platform::NtStatus status = digests().BCryptGetProperty(provider_.get(), L"HashDigestLength", digestLength);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): BCryptGetProperty (Hash Length) failed: 0x%x", status);
    return false;
  }
  // The platform takes lengths of 32 bits. A length cut to that would give the digest of other data, so it is refused.
  platform::HashHandle hash;
  status = key.size() > kMaxInputBytes ? platform::kNtStatusInvalidParameter
                                       : digests().BCryptCreateHash(provider_.get(), hash, object, key);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): BCryptCreateHash failed: 0x%x", status);
    return false;
  }
  status =
      data.size() > kMaxInputBytes ? platform::kNtStatusInvalidParameter : digests().BCryptHashData(hash.get(), data);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): BCryptHashData failed: 0x%x", status);
    return false;
  }
  digest.resize(digestLength);
  status = digests().BCryptFinishHash(hash.get(), digest);
  if (failed(status)) {
    CORE::log(CORE::kError, L"HashGenerator::GenerateHash(): BCryptFinishHash failed: 0x%x", status);
    return false;
  }
  return true;
}

bool HashGenerator::GenerateHash(std::string_view data, std::string_view key, std::vector<std::byte>& digest) {
  const auto dataBytes = std::as_bytes(std::span(data));
  const auto keyBytes = std::as_bytes(std::span(key));
  return GenerateHash(dataBytes.data(), dataBytes.size(), key.empty() ? nullptr : keyBytes.data(), keyBytes.size(),
                      digest);
}

void HashGenerator::FormatHash(const std::vector<std::byte>& digest, std::uint32_t format, std::string& text) {
  text.clear();
  if (digest.empty()) {
    return;
  }
  CORE::guardMemory([&] {
    switch (format) {
      case HashOutputFormat::Base64:
        text = base64Text(digest);
        break;
      case HashOutputFormat::HexUpper:
      case HashOutputFormat::HexUpperColon:
      case HashOutputFormat::HexLower:
      case HashOutputFormat::HexLowerColon:
        text = hexText(digest, format <= HashOutputFormat::HexUpperColon,
                       format == HashOutputFormat::HexUpperColon || format == HashOutputFormat::HexLowerColon);
        break;
      default:
        CORE::log(CORE::kError, L"HashGenerator::FormatHash(): Unrecognized output format");
        break;
    }
  });
}

bool HashGenerator::HashAndFormat(std::string_view data, std::string_view key, std::uint32_t format,
                                  std::string& text) {
  std::vector<std::byte> digest;
  const bool hashed = GenerateHash(data, key, digest);
  FormatHash(digest, format, text);
  return hashed;
}
