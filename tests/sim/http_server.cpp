// What the simulated network and the scripted server do with a request.
#include <algorithm>

#include "tests/sim/http_handles.h"

namespace sim {

namespace {
constexpr std::uint32_t kLargestPiece = 8192;  // what the platform tells as available at once
}

/// Whether the script lets this call fail now; then it has been answered.
bool WinHttp::fails(HttpRequestHandle& request, const HttpPending& call) {
  const auto failure = request.reply ? request.reply->failure : std::nullopt;
  if (!failure || failure->stage != call.stage) {
    return false;
  }
  fail(request, call, failure->error);
  return true;
}

/// Asks for the answer: `whole` once the body is complete, otherwise at its beginning.
void WinHttp::askServer(HttpRequestHandle& request, bool whole) {
  Guard guard(kernel_.mutex);
  const HttpExchange seen = request.known;
  const auto server = server_;
  const auto early = headersServer_;
  guard.unlock();
  std::optional<HttpReply> reply;
  if (whole) {
    reply = server != nullptr ? server(seen) : HttpReply{};
  } else if (early != nullptr) {
    reply = early(seen);
  }
  guard.lock();
  request.reply = std::move(reply);
}

void WinHttp::takeBody(HttpRequestHandle& request, std::span<const std::byte> data) {
  request.hash.add(data);
  Guard guard(kernel_.mutex);
  HttpExchange& known = request.known;
  known.bodySize += data.size();
  if (known.bodySize <= storeBodyUpTo) {
    known.body.append(reinterpret_cast<const char*>(data.data()), data.size());
  } else {
    known.body.clear();
  }
  if (known.bodySize < known.totalLength || !known.bodySha256.empty()) {
    return;
  }
  known.bodySha256 = request.hash.hex();
  const bool decided = request.reply.has_value();
  guard.unlock();
  if (!decided) {
    askServer(request, true);
  }
}

void WinHttp::completeSend(HttpRequestHandle& request, const HttpPending& call) {
  const HttpExchange seen = kernel_.copyOf(request.known);
  const bool secure = (seen.requestFlags & platform::kWinHttpFlagSecure) != 0;
  const bool refused = secure && proxyRefuses(seen);
  if (secure && !refused && !shakeHands(request, call)) {
    return;
  }
  if (!notify(request, platform::kStatusSendingRequest, nullptr, 0)) {
    return finish(request, call, 0);
  }
  Guard guard(kernel_.mutex);
  request.known.reached = !refused;
  if (refused) {
    request.reply.emplace().status = 407;
  }
  guard.unlock();
  if (!refused) {
    askServer(request, false);
  }
  if (fails(request, call)) {
    return;
  }
  takeBody(request, call.data);
  if (fails(request, call)) {
    return;
  }
  finish(request, call, platform::kStatusSendRequestComplete);
}

void WinHttp::completeWrite(HttpRequestHandle& request, const HttpPending& call) {
  if (fails(request, call)) {
    return;
  }
  takeBody(request, call.data);
  std::uint32_t written = static_cast<std::uint32_t>(call.data.size());
  finish(request, call, platform::kStatusWriteComplete, &written, sizeof(written));
}

void WinHttp::completeReceive(HttpRequestHandle& request, const HttpPending& call) {
  if (!request.reply) {
    return fail(request, call, platform::kErrorWinHttpTimeout);  // the server still waits for the body
  }
  if (fails(request, call)) {
    return;
  }
  {
    const Guard guard(kernel_.mutex);
    request.headersReady = true;
  }
  finish(request, call, platform::kStatusHeadersAvailable);
}

void WinHttp::completeQuery(HttpRequestHandle& request, const HttpPending& call) {
  if (fails(request, call)) {
    return;
  }
  const auto& pieces = request.reply->pieces;
  if (request.available == 0) {
    const std::uint32_t piece = request.piece < pieces.size() ? pieces[request.piece] : kLargestPiece;
    ++request.piece;
    const std::uint64_t rest = request.replySize() - request.bodyRead;
    request.available = static_cast<std::uint32_t>(std::min<std::uint64_t>(piece, rest));
  }
  std::uint32_t available = request.available;
  finish(request, call, platform::kStatusDataAvailable, &available, sizeof(available));
}

void WinHttp::completeRead(HttpRequestHandle& request, const HttpPending& call) {
  if (fails(request, call)) {
    return;
  }
  const std::uint64_t rest = request.replySize() - request.bodyRead;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(call.buffer.size(), rest));
  for (std::size_t i = 0; i < count; ++i) {
    const bool repeats = request.reply->repeatedBody != 0;
    const char value = repeats ? 'x' : request.reply->body[static_cast<std::size_t>(request.bodyRead) + i];
    call.buffer[i] = static_cast<std::byte>(value);
  }
  request.bodyRead += count;
  request.available -= static_cast<std::uint32_t>(std::min<std::size_t>(count, request.available));
  finish(request, call, platform::kStatusReadComplete, call.buffer.data(), static_cast<std::uint32_t>(count));
}

}  // namespace sim
