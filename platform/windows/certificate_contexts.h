#pragma once

#include "platform/windows/native.h"

// After windows.h, which it needs. The macro adds the members of CERT_CHAIN_PARA behind RequestedUsage.
#define CERT_CHAIN_PARA_HAS_EXTRA_FIELDS
#include <wincrypt.h>

namespace platform {

// Conversions between the neutral handles and the contexts behind them. Windows takes a context as const in every call,
// also in those that free it.
inline NativeHandle handleOf(const void* context) { return const_cast<void*>(context); }
inline PCCERT_CONTEXT certificateOf(NativeHandle handle) { return static_cast<PCCERT_CONTEXT>(handle); }
inline PCCERT_CHAIN_CONTEXT chainOf(NativeHandle handle) { return static_cast<PCCERT_CHAIN_CONTEXT>(handle); }
inline PCCRL_CONTEXT crlOf(NativeHandle handle) { return static_cast<PCCRL_CONTEXT>(handle); }

}  // namespace platform
