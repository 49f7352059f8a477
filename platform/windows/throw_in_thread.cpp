#include "platform/windows/throw_in_thread.h"

#include <bit>

#include "platform/windows/native.h"

namespace platform {
namespace {

constexpr DWORD64 kStackAlignment = 16;
constexpr DWORD kDirectionFlag = 0x400;
constexpr DWORD64 kRoom = 4096;  // below the stack pointer, for thrower to begin with

/// Whether the stack pointer is one, with something above it to return by.
bool isOnStack(const CONTEXT& context) {
  ULONG_PTR low = 0;
  ULONG_PTR high = 0;
  ::GetCurrentThreadStackLimits(&low, &high);
  return context.Rsp % sizeof(DWORD64) == 0 && context.Rsp >= low + kRoom && context.Rsp < high - kStackAlignment;
}

RUNTIME_FUNCTION* functionOf(const CONTEXT& context, DWORD64& image) {
  return ::RtlLookupFunctionEntry(context.Rip, &image, nullptr);
}

/// Whether the function is at a place where it may catch or clean up; else `context` becomes that of its caller.
bool stopsOrLeaves(CONTEXT& context) {
  DWORD64 image = 0;
  RUNTIME_FUNCTION* const function = functionOf(context, image);
  if (function == nullptr) {  // a leaf, which has moved nothing, or no code at all
    context.Rip = *std::bit_cast<const DWORD64*>(context.Rsp);
    context.Rsp += sizeof(DWORD64);
    return false;
  }
  CONTEXT caller = context;
  void* data = nullptr;
  DWORD64 frame = 0;
  if (::RtlVirtualUnwind(UNW_FLAG_EHANDLER | UNW_FLAG_UHANDLER, image, context.Rip, function, &caller, &data, &frame,
                         nullptr) != nullptr) {
    return true;
  }
  context = caller;
  return false;
}

}  // namespace

bool throwInThread(_CONTEXT& failed, void (*thrower)()) {
  CONTEXT context = failed;
  if (!isOnStack(context)) {
    return false;
  }
  // The caller's tables are searched by the address before the one that it returns to, as that follows a call: one
  // further makes it the failing instruction.
  const bool stops = stopsOrLeaves(context);
  const DWORD64 returnsTo = context.Rip + (stops ? 1 : 0);
  // Below the stack pointer of a function that calls others, and of every caller, is nothing, and above it is the room
  // that the called function may use.
  DWORD64 image = 0;
  if (!isOnStack(context) || context.Rsp % kStackAlignment != 0 || functionOf(context, image) == nullptr) {
    return false;
  }
  context.Rsp -= sizeof(DWORD64);
  *std::bit_cast<DWORD64*>(context.Rsp) = returnsTo;
  context.Rip = std::bit_cast<DWORD64>(thrower);
  context.EFlags &= ~kDirectionFlag;  // every function may rely on it
  failed = context;
  return true;
}

}  // namespace platform
