#pragma once

struct _CONTEXT;  // CONTEXT

namespace platform {

/// Changes the state of a thread that has failed so that it goes on in `thrower` as if that had been called where it
/// failed, and what it throws is caught there or further up.
///
/// A function that has nothing to catch or clean up at that place is left at once: `thrower` is then called by its
/// caller. That also covers a function's first instruction, and a call through a wild pointer.
/// \return false, and nothing is changed, when there is no such way: the stack is damaged.
bool throwInThread(_CONTEXT& context, void (*thrower)());

}  // namespace platform
