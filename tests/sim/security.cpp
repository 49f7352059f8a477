#include "tests/sim/security.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/objects.h"

namespace sim {
namespace {

using Bytes = std::vector<std::byte>;

/// The binary layout of a SID: revision, count, six bytes of authority, the sub-authorities (little endian).
Bytes makeSid(const platform::SidIdentifierAuthority& authority, std::span<const std::uint32_t> parts) {
  Bytes sid{std::byte{1}, static_cast<std::byte>(parts.size())};
  for (const std::uint8_t value : authority) {
    sid.push_back(std::byte{value});
  }
  const auto bytes = std::as_bytes(parts);
  sid.insert(sid.end(), bytes.begin(), bytes.end());
  return sid;
}

Bytes sidOf(bool localSystem) {
  const std::vector<std::uint32_t> parts =
      localSystem ? std::vector<std::uint32_t>{platform::kSecurityLocalSystemRid}
                  : std::vector<std::uint32_t>{21, 1004336348, 1177238915, 682003330, 1001};
  return makeSid(platform::kSecurityNtAuthority, parts);
}

}  // namespace

struct Security::Token : KernelObject {
  const char* kind() const override { return "token"; }
};

struct Security::SidMemory : Object {
  explicit SidMemory(Bytes bytes) : size(bytes.size()), memory(std::make_unique<std::byte[]>(size)) {
    std::copy(bytes.begin(), bytes.end(), memory.get());
  }
  const char* kind() const override { return "SID"; }
  const std::size_t size;
  const std::unique_ptr<std::byte[]> memory;  // a block of its own, so that the sanitizers see its bounds
};

platform::Result<platform::KernelHandle> Security::OpenProcessToken(platform::NativeHandle process,
                                                                    std::uint32_t access) {
  if (const auto error = kernel_.faults.pass("OpenProcessToken")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  if (process != platform::invalidHandleValue()) {  // only the pseudo handle of GetCurrentProcess is known here
    kernel_.misuse("OpenProcessToken: not the process itself");
    return {false, {}, platform::kErrorInvalidHandle};
  }
  if (access != platform::kTokenQuery) {
    return {false, {}, platform::kErrorAccessDenied};
  }
  return {true, platform::KernelHandle(kernel_.add(std::make_shared<Token>())), 0};
}

platform::Result<std::uint32_t> Security::GetTokenInformation(platform::NativeHandle token,
                                                              std::uint32_t informationClass,
                                                              std::span<std::byte> buffer) {
  if (const auto error = kernel_.faults.pass("GetTokenInformation")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  if (kernel_.get<Token>(token, "GetTokenInformation") == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if (informationClass != platform::kTokenUser) {
    return {false, 0, platform::kErrorInvalidParameter};
  }
  const Bytes sid = sidOf(localSystem);
  const auto needed = static_cast<std::uint32_t>(sizeof(platform::TokenUser) + sid.size());
  if (buffer.size() < needed) {
    return {false, needed, platform::kErrorInsufficientBuffer};
  }
  if (reinterpret_cast<std::uintptr_t>(buffer.data()) % alignof(platform::TokenUser) != 0) {
    kernel_.misuse("GetTokenInformation: the buffer is not aligned");
    return {false, needed, platform::kErrorInvalidParameter};
  }
  std::byte* const place = buffer.data() + sizeof(platform::TokenUser);
  const platform::TokenUser user{place, 0};
  std::memcpy(buffer.data(), &user, sizeof(user));
  std::copy(sid.begin(), sid.end(), place);
  return {true, needed, 0};
}

platform::Result<platform::Sid> Security::AllocateAndInitializeSid(const platform::SidIdentifierAuthority& authority,
                                                                   std::span<const std::uint32_t> subAuthorities) {
  if (const auto error = kernel_.faults.pass("AllocateAndInitializeSid")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  auto sid = std::make_shared<SidMemory>(makeSid(authority, subAuthorities));
  void* const memory = sid->memory.get();
  return {true, platform::Sid(kernel_.add(std::move(sid), memory)), 0};
}

bool Security::EqualSid(platform::NativeHandle first, platform::NativeHandle second) {
  if (kernel_.faults.pass("EqualSid")) {
    return false;
  }
  const auto* const one = static_cast<const std::uint8_t*>(first);
  const auto* const other = static_cast<const std::uint8_t*>(second);
  const std::size_t size = 8u + 4u * one[1];
  return one[1] == other[1] && std::memcmp(one, other, size) == 0;
}

void Security::FreeSid(platform::NativeHandle sid) {
  kernel_.faults.note("FreeSid");
  const Guard guard(kernel_.mutex);
  kernel_.take<SidMemory>(sid, "FreeSid");
}

}  // namespace sim
