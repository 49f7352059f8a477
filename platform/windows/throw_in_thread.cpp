#include "platform/windows/throw_in_thread.h"

#include <bit>

#include "platform/windows/native.h"

namespace platform {
namespace {

constexpr DWORD64 kStackAlignment = 16;
constexpr DWORD kDirectionFlag = 0x400;
constexpr DWORD64 kRoom = 4096;  // bytes below the stack pointer that the thrower needs to begin with

/// Whether the stack pointer points into the thread's stack, with room below it and a return address above it.
bool isOnStack(const CONTEXT& context) {
  ULONG_PTR low = 0;
  ULONG_PTR high = 0;
  ::GetCurrentThreadStackLimits(&low, &high);
  return context.Rsp % sizeof(DWORD64) == 0 && context.Rsp >= low + kRoom && context.Rsp < high - kStackAlignment;
}

RUNTIME_FUNCTION* functionOf(const CONTEXT& context, DWORD64& image) {
  return ::RtlLookupFunctionEntry(context.Rip, &image, nullptr);
}

/// Whether the function may catch or clean up at its present instruction. If not, the function is left: `context`
/// becomes that of its caller.
bool stopsOrLeaves(CONTEXT& context) {
  DWORD64 image = 0;
  RUNTIME_FUNCTION* const function = functionOf(context, image);
  if (function == nullptr) {  // a leaf function, which has not moved the stack pointer, or no code at all
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
  // A caller's tables are searched by the byte before its return address, since that address follows a call. To make
  // the search find the failing instruction, the address returned to is one byte behind it.
  const bool stops = stopsOrLeaves(context);
  const DWORD64 returnsTo = context.Rip + (stops ? 1 : 0);
  // The return address can be pushed as a call would: a function that calls others keeps nothing below its stack
  // pointer, and above it the room that the called function may use.
  DWORD64 image = 0;
  if (!isOnStack(context) || context.Rsp % kStackAlignment != 0 || functionOf(context, image) == nullptr) {
    return false;
  }
  context.Rsp -= sizeof(DWORD64);
  *std::bit_cast<DWORD64*>(context.Rsp) = returnsTo;
  context.Rip = std::bit_cast<DWORD64>(thrower);
  context.EFlags &= ~kDirectionFlag;  // every function may rely on its being clear
  failed = context;
  return true;
}

}  // namespace platform
