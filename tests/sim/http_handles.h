#pragma once

#include <optional>

#include "tests/sim/winhttp.h"

namespace sim {

/// What sessions, connections and requests have in common: the callback that they inherit.
struct HttpHandle : Object {
  NativeHandle handle = nullptr;
  StatusCallback callback = nullptr;
  HttpExchange known;  ///< what is known so far; a child starts with its parent's
};

struct HttpSessionHandle : HttpHandle {
  const char* kind() const override { return "WinHTTP session"; }
};

struct HttpConnectionHandle : HttpHandle {
  const char* kind() const override { return "WinHTTP connection"; }
};

/// A call that has been made and not yet completed, with the program's memory that it uses.
struct HttpPending {
  HttpStage stage{};
  std::span<std::byte> buffer;
  std::span<const std::byte> data;
};

/// A request and how far its exchange has come. The kernel's mutex guards it, except for `reply`, which belongs to the
/// thread that completes the call in flight.
struct HttpRequestHandle : HttpHandle {
  const char* kind() const override { return "WinHTTP request"; }

  std::optional<HttpReply> reply;

  std::optional<ServerChain> shown;    ///< what the server has shown in the handshake
  bool inFlight = false;               ///< a call has been made, and its completion has not reached the program
  std::optional<HttpPending> pending;  ///< that call, until a thread begins to complete it
  HttpPending taken;                   ///< the call that a thread began to complete last
  bool silenced = false;               ///< `pending` is never answered
  bool bound = false;                  ///< the context is known, by a send
  bool headersReady = false;
  bool closing = false;   ///< WinHttpCloseHandle was called
  bool finished = false;  ///< HANDLE_CLOSING has begun: nothing comes after it
  bool hasWorker = false;
  std::uint64_t bodyRead = 0;
  std::size_t piece = 0;
  std::uint32_t available = 0;
  std::vector<std::thread::id> delivering;  ///< threads that deliver, as often as their deliveries nest
  std::span<const std::byte> optionalData;  ///< of the send: a redirect may send it again

  std::uint64_t replySize() const { return reply->repeatedBody != 0 ? reply->repeatedBody : reply->body.size(); }
  bool othersDeliver() const {
    return std::ranges::any_of(delivering, [](auto thread) { return thread != std::this_thread::get_id(); });
  }
};

}  // namespace sim
