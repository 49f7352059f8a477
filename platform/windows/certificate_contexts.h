#pragma once

#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <wincrypt.h>

namespace platform {

// The contexts behind the neutral handles. The calls that end a context's life take it as const, as all the others do.
inline NativeHandle handleOf(const void* context) { return const_cast<void*>(context); }
inline PCCERT_CONTEXT certificateOf(NativeHandle handle) { return static_cast<PCCERT_CONTEXT>(handle); }
inline PCCERT_CHAIN_CONTEXT chainOf(NativeHandle handle) { return static_cast<PCCERT_CHAIN_CONTEXT>(handle); }
inline PCCRL_CONTEXT crlOf(NativeHandle handle) { return static_cast<PCCRL_CONTEXT>(handle); }

}  // namespace platform
