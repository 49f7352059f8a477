#include "tests/sim/digests.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <array>
#include <memory>

namespace sim {
namespace {

constexpr auto kSuccess = platform::NtStatus{0};
constexpr auto kInvalidHandle = static_cast<platform::NtStatus>(0xC0000008);
constexpr auto kInvalidParameter = static_cast<platform::NtStatus>(0xC000000D);
constexpr auto kBufferTooSmall = static_cast<platform::NtStatus>(0xC0000023);
constexpr auto kNotFound = static_cast<platform::NtStatus>(0xC0000225);

struct Free {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
  void operator()(EVP_MAC* algorithm) const { EVP_MAC_free(algorithm); }
};

platform::NtStatus asStatus(platform::ErrorCode error) { return static_cast<platform::NtStatus>(error | 0xC0000000); }

const unsigned char* bytes(std::span<const std::byte> data) {
  return reinterpret_cast<const unsigned char*>(data.data());
}

}  // namespace

struct Digests::Provider : Object {
  const char* kind() const override { return "BCrypt provider"; }
  bool md5 = false;
  bool keyed = false;
  std::size_t length() const { return md5 ? 16 : 32; }
};

struct Digests::Hash : Object {
  const char* kind() const override { return "BCrypt hash"; }
  /// What the platform does with the object that the program lent: it lives in it.
  void touch() {
    object.front() ^= std::byte{0xFF};
    object.back() ^= std::byte{0xFF};
  }
  std::span<std::byte> object;
  std::size_t length = 0;
  std::unique_ptr<EVP_MD_CTX, Free> digest;
  std::unique_ptr<EVP_MAC_CTX, Free> mac;
  bool finished = false;
};

platform::NtStatus Digests::BCryptOpenAlgorithmProvider(platform::AlgorithmProvider& provider,
                                                        const std::wstring& algorithm, std::uint32_t flags) {
  if (const auto error = kernel_.faults.pass("BCryptOpenAlgorithmProvider")) {
    return asStatus(*error);
  }
  if (algorithm != L"SHA256" && algorithm != L"MD5") {
    return kNotFound;
  }
  auto object = std::make_shared<Provider>();
  object->md5 = algorithm == L"MD5";
  object->keyed = (flags & platform::kBcryptAlgHandleHmacFlag) != 0;
  Guard guard(kernel_.mutex);
  const auto handle = kernel_.add(object);
  guard.unlock();
  provider.reset(handle);
  return kSuccess;
}

void Digests::BCryptCloseAlgorithmProvider(platform::NativeHandle provider) {
  kernel_.faults.note("BCryptCloseAlgorithmProvider");
  const Guard guard(kernel_.mutex);
  kernel_.take<Provider>(provider, "BCryptCloseAlgorithmProvider");
}

platform::NtStatus Digests::BCryptGetProperty(platform::NativeHandle provider, const std::wstring& property,
                                              std::uint32_t& value) {
  if (const auto error = kernel_.faults.pass("BCryptGetProperty")) {
    return asStatus(*error);
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Provider>(provider, "BCryptGetProperty");
  if (object == nullptr) {
    return kInvalidHandle;
  }
  if (property != L"ObjectLength" && property != L"HashDigestLength") {
    return kNotFound;
  }
  value = property == L"ObjectLength" ? objectLength : static_cast<std::uint32_t>(object->length());
  return kSuccess;
}

platform::NtStatus Digests::BCryptCreateHash(platform::NativeHandle provider, platform::HashHandle& hash,
                                             std::span<std::byte> object, std::span<const std::byte> key) {
  if (const auto error = kernel_.faults.pass("BCryptCreateHash")) {
    return asStatus(*error);
  }
  Guard guard(kernel_.mutex);
  const auto algorithm = kernel_.get<Provider>(provider, "BCryptCreateHash");
  if (algorithm == nullptr) {
    return kInvalidHandle;
  }
  if (object.size() < objectLength) {
    return kBufferTooSmall;
  }
  if (!key.empty() && !algorithm->keyed) {
    return kInvalidParameter;
  }
  auto result = std::make_shared<Hash>();
  result->object = object;
  result->length = algorithm->length();
  if (algorithm->keyed) {
    const std::unique_ptr<EVP_MAC, Free> hmac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    result->mac.reset(EVP_MAC_CTX_new(hmac.get()));
    char name[] = "SHA256";
    char md5[] = "MD5";
    const std::array parameters = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, algorithm->md5 ? md5 : name, 0),
        OSSL_PARAM_construct_end()};
    const unsigned char none = 0;
    EVP_MAC_init(result->mac.get(), key.empty() ? &none : bytes(key), key.size(), parameters.data());
  } else {
    result->digest.reset(EVP_MD_CTX_new());
    EVP_DigestInit_ex(result->digest.get(), algorithm->md5 ? EVP_md5() : EVP_sha256(), nullptr);
  }
  result->touch();
  const auto handle = kernel_.add(result);
  guard.unlock();
  hash.reset(handle);
  return kSuccess;
}

platform::NtStatus Digests::BCryptHashData(platform::NativeHandle hash, std::span<const std::byte> data) {
  if (const auto error = kernel_.faults.pass("BCryptHashData")) {
    return asStatus(*error);
  }
  Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Hash>(hash, "BCryptHashData");
  if (object == nullptr || object->finished) {
    return kInvalidHandle;
  }
  guard.unlock();
  object->touch();
  const int done = object->mac != nullptr ? EVP_MAC_update(object->mac.get(), bytes(data), data.size())
                                          : EVP_DigestUpdate(object->digest.get(), data.data(), data.size());
  return done == 1 ? kSuccess : kInvalidParameter;
}

platform::NtStatus Digests::BCryptFinishHash(platform::NativeHandle hash, std::span<std::byte> digest) {
  if (const auto error = kernel_.faults.pass("BCryptFinishHash")) {
    return asStatus(*error);
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Hash>(hash, "BCryptFinishHash");
  if (object == nullptr || object->finished) {
    return kInvalidHandle;
  }
  if (digest.size() != object->length) {
    return kInvalidParameter;
  }
  object->touch();
  object->finished = true;
  auto* const out = reinterpret_cast<unsigned char*>(digest.data());
  std::size_t written = 0;
  const int done = object->mac != nullptr ? EVP_MAC_final(object->mac.get(), out, &written, digest.size())
                                          : EVP_DigestFinal_ex(object->digest.get(), out, nullptr);
  return done == 1 ? kSuccess : kInvalidParameter;
}

void Digests::BCryptDestroyHash(platform::NativeHandle hash) {
  kernel_.faults.note("BCryptDestroyHash");
  const Guard guard(kernel_.mutex);
  if (const auto object = kernel_.take<Hash>(hash, "BCryptDestroyHash")) {
    object->touch();
  }
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
  EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(context_), EVP_sha256(), nullptr);
}

Sha256::~Sha256() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(context_)); }

void Sha256::add(std::span<const std::byte> data) {
  EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(context_), data.data(), data.size());
}

std::string Sha256::hex() const {
  const std::unique_ptr<EVP_MD_CTX, Free> copy(EVP_MD_CTX_new());
  EVP_MD_CTX_copy_ex(copy.get(), static_cast<const EVP_MD_CTX*>(context_));
  std::array<unsigned char, 32> digest{};
  EVP_DigestFinal_ex(copy.get(), digest.data(), nullptr);
  std::string text;
  for (const unsigned char value : digest) {
    text += "0123456789abcdef"[value >> 4];
    text += "0123456789abcdef"[value & 15];
  }
  return text;
}

}  // namespace sim
