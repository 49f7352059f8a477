#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/result.h"

namespace sim {

/// Everything that the simulation has seen of one request so far.
struct HttpExchange {
  std::size_t index = 0;  ///< 0 for the first request handle that the program opened
  std::wstring verb;
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path;                                         ///< with the query
  std::uint32_t requestFlags = 0;                            ///< of WinHttpOpenRequest
  std::wstring headersText;                                  ///< as given to WinHttpSendRequest
  std::vector<std::pair<std::string, std::string>> headers;  ///< in order
  std::uint32_t totalLength = 0;
  std::vector<std::uint64_t> writes;  ///< sizes of the WinHttpWriteData calls
  std::uint64_t bodySize = 0;         ///< bytes that arrived
  std::string body;                   ///< its first bytes, up to WinHttp::storeBodyUpTo
  bool sent = false;                  ///< WinHttpSendRequest succeeded
  bool reached = false;               ///< its headers have left for the server
  bool closed = false;                ///< the program closed the request handle
  std::uintptr_t context = 0;

  std::wstring userAgent;
  std::uint32_t accessType = 0;
  std::wstring proxy;
  std::wstring bypass;
  std::uint32_t sessionFlags = 0;
  std::array<int, 4> timeouts{};  ///< resolve, connect, send, receive; milliseconds
  std::uint32_t callbackMask = 0;
  std::map<std::uint32_t, std::uint32_t> numberOptions;
  std::map<std::uint32_t, std::wstring> textOptions;

  std::string header(const std::string& name) const;  ///< finds by name without case; empty when there is none
  std::uint32_t securityFlags() const;
};

/// The calls that complete later, with the numbers that they have in a REQUEST_ERROR.
enum class HttpStage : std::uint8_t { kReceive = 1, kQueryData = 2, kRead = 3, kWrite = 4, kSend = 5 };

/// What the server does with a request.
struct HttpReply {
  std::uint32_t status = 200;
  std::wstring location;    ///< of a status 3xx: where WinHTTP goes by itself, unless redirects are forbidden
  std::wstring headers;     ///< further lines, each with its CRLF
  std::wstring rawHeaders;  ///< the whole block instead, when not empty
  std::string body;
  std::uint64_t repeatedBody = 0;     ///< instead of `body`: how often "x" is repeated
  std::vector<std::uint32_t> pieces;  ///< sizes that DATA_AVAILABLE reports, in order; after them at most 8192
  bool hold = false;                  ///< WinHttpReceiveResponse completes only after WinHttp::release()
};

/// When a completion reaches the program.
enum class Delivery : std::uint8_t {
  kWorker,  ///< on a worker thread of the request, in order
  kInline,  ///< on the calling thread, inside the very call, however deep the calls nest
  kLate,    ///< on the worker, each one only after WinHttp::release() (see also WinHttp::lateDelay)
  kMixed,   ///< inline or on the worker, by a seeded choice for each completion
  kNever,   ///< nothing is ever delivered, not even HANDLE_CLOSING
};

/// What happens to the call in flight, before HANDLE_CLOSING, when its request handle is closed.
enum class OnClose : std::uint8_t {
  kCancelled,  ///< a REQUEST_ERROR with kErrorWinHttpOperationCancelled comes
  kDropped,    ///< nothing
  kDelivered,  ///< its own completion still comes, if a thread can complete it; otherwise nothing
};

}  // namespace sim
