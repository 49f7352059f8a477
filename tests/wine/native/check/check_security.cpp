#include <vector>

#include "platform/heap.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/security.h"
#include "tests/wine/native/check/tap.h"

namespace check {

void security() {
  platform::Security& security = platform::current().security;
  const auto token =
      security.OpenProcessToken(platform::current().processes.GetCurrentProcess(), platform::kTokenQuery);
  that(token.ok, "security: the process's token opens");
  const auto asked = security.GetTokenInformation(token.value.get(), platform::kTokenUser, {});
  that(!asked.ok && asked.error == platform::kErrorInsufficientBuffer && asked.value > sizeof(platform::TokenUser),
       "security: without a buffer the size comes back");
  std::vector<std::byte> buffer(asked.value);
  const auto read = security.GetTokenInformation(token.value.get(), platform::kTokenUser, buffer);
  const auto* const user = reinterpret_cast<const platform::TokenUser*>(buffer.data());
  const auto* const sid = static_cast<const std::byte*>(user->sid);
  that(read.ok && sid > buffer.data() && sid < buffer.data() + buffer.size(),
       "security: the user's identifier lies in the buffer");

  const std::uint32_t system[] = {platform::kSecurityLocalSystemRid};
  const std::uint32_t service[] = {platform::kSecurityLocalSystemRid + 1};
  const auto first = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, system);
  const auto second = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, system);
  const auto other = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, service);
  that(first.ok && second.ok && security.EqualSid(first.value.get(), second.value.get()),
       "security: equal identifiers are equal");
  that(!security.EqualSid(first.value.get(), other.value.get()), "security: others are not");
  that(security.EqualSid(user->sid, user->sid), "security: the user is the user");
  that(!security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, std::vector<std::uint32_t>(9)).ok,
       "security: nine sub-authorities are refused");

  platform::Heap& heap = platform::current().heap;
  void* const memory = heap.HeapAlloc(heap.GetProcessHeap(), 1 << 20);
  that(memory != nullptr, "heap: memory comes");
  heap.HeapFree(heap.GetProcessHeap(), memory);
  that(heap.HeapAlloc(heap.GetProcessHeap(), ~std::size_t{0} >> 1) == nullptr, "heap: or null when there is none");
}

}  // namespace check
