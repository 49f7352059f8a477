#pragma once

struct _CONTEXT;  // CONTEXT

namespace platform {

/// Changes the state of a thread that has failed so that it continues in `thrower`, as if it had called that where it
/// failed. What `thrower` throws is caught there or further up.
///
/// A function that has nothing to catch or clean up at that place is left first, so that its caller calls `thrower`.
/// This also covers a failure at a function's first instruction and a call through a wild pointer.
/// \return false, with nothing changed, when the stack is damaged so that the thread cannot continue.
bool throwInThread(_CONTEXT& context, void (*thrower)());

}  // namespace platform
