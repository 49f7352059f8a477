// When, on which thread and in which order the notifications of a simulated request reach the program.

#include "tests/sim/http_handles.h"

namespace sim {

void WinHttp::waitUntilHeld() {
  Guard guard(kernel_.mutex);
  kernel_.waitUntil(guard, kInfinite, "a completion to hold", [&] {
    return std::ranges::any_of(requests_, [&](const Request& request) {
      const bool late = (request->pending || (request->closing && request->bound)) && !isOpenTo(*request);
      return !request->finished && (late || (request->silenced && !request->closing));
    });
  });
}

void WinHttp::waitUntilIdle() {
  Guard guard(kernel_.mutex);
  kernel_.waitUntil(guard, kInfinite, "the end of all deliveries", [&] {
    return std::ranges::all_of(requests_, [&](const Request& request) {
      return !hasWork(*request) && request->delivering.empty() && (!request->inFlight || request->pending);
    });
  });
}

/// Whether the test lets the call in flight, or the closing, go on.
bool WinHttp::isOpenTo(const HttpRequestHandle& request) const {
  const bool late = delivery == Delivery::kLate && lateDelay.count() == 0;
  const bool held = request.pending && request.pending->stage == HttpStage::kReceive && request.reply &&
                    request.reply->hold && !request.closing;
  return delivery != Delivery::kNever && (released_ || (!late && !held));
}

bool WinHttp::hasWork(const HttpRequestHandle& request) const {
  return !request.finished && isOpenTo(request) && (request.closing || (request.pending && !request.silenced));
}

bool WinHttp::goesInline(const HttpRequestHandle& request, bool closing) {
  if (!isOpenTo(request) || (closing && request.othersDeliver())) {
    return false;
  }
  if (delivery == Delivery::kMixed) {
    seed = seed * 1664525u + 1013904223u;
    return (seed >> 16 & 1u) != 0;
  }
  return delivery == Delivery::kInline || (closing && closingInline);
}

void WinHttp::needWorker(const Request& request) {
  if (!request->hasWorker && !ended_ && delivery != Delivery::kNever) {
    request->hasWorker = true;
    kernel_.startThread([this, request] { work(request); });
  }
  kernel_.wake();
}

void WinHttp::work(const Request& request) {
  Guard guard(kernel_.mutex);
  while (true) {
    kernel_.idle(guard,
                 [&] { return ended_ || (hasWork(*request) && (!request->closing || !request->othersDeliver())); });
    if (!ended_ && delivery == Delivery::kLate && lateDelay.count() > 0) {
      guard.unlock();
      std::this_thread::sleep_for(lateDelay);
      guard.lock();
    }
    if (ended_) {
      return;
    }
    const bool answers =
        request->pending && !request->silenced && (!request->closing || onClose == OnClose::kDelivered);
    if (answers) {
      complete(guard, request);
    } else if (request->closing && !request->othersDeliver()) {
      close(guard, *request);
      return;
    }
  }
}

Status WinHttp::start(NativeHandle handle, HttpStage stage, const char* operation,
                      const std::function<void(HttpRequestHandle&)>& prepare, std::uintptr_t context) {
  const auto fault = kernel_.faults.pass(operation);
  Guard guard(kernel_.mutex);
  const auto request = kernel_.get<HttpRequestHandle>(handle, operation);
  if (request == nullptr) {
    return Failure{kErrorInvalidHandle};
  }
  if (fault) {
    request->bound = request->bound || (stage == HttpStage::kSend && bindContextOfFailedSend);
    request->known.context = request->bound && !request->known.sent ? context : request->known.context;
    return Failure{*fault};
  }
  if (request->inFlight) {
    kernel_.misuse(std::string(operation) + ": another call of the request is in flight");
    return Failure{kErrorWinHttpIncorrectHandleState};
  }
  request->pending = HttpPending{stage, {}, {}};
  try {
    prepare(*request);
  } catch (const Failure& failure) {
    request->pending.reset();
    return failure;
  }
  request->inFlight = true;
  if (goesInline(*request, false)) {
    complete(guard, request);
  } else {
    needWorker(request);
  }
  return kDone;
}

/// Answers the call in flight on this thread. The lock is held before and after, but not while the program is notified.
void WinHttp::complete(Guard& guard, const Request& request) {
  const HttpPending call = *request->pending;
  request->pending.reset();
  request->taken = call;
  request->delivering.push_back(std::this_thread::get_id());
  guard.unlock();
  answer(*request, call);
  guard.lock();
  leave(*request);
}

/// Records that this thread has left a delivery. Lock held.
void WinHttp::leave(HttpRequestHandle& request) {
  auto& threads = request.delivering;
  threads.erase(std::find(threads.begin(), threads.end(), std::this_thread::get_id()));
  kernel_.wake();
}

/// Ends a request on this thread: cancels the call in flight, then notifies of HANDLE_CLOSING. The lock is held before
/// and after, but not while the program is notified.
void WinHttp::close(Guard& guard, HttpRequestHandle& request) {
  const bool cancels = request.inFlight && onClose == OnClose::kCancelled;
  const auto lent = request.pending;  // nothing when this very thread is completing the call, further up its stack
  const HttpStage stage = lent ? lent->stage : request.taken.stage;
  request.pending.reset();
  request.inFlight = false;
  guard.unlock();
  if (cancels) {
    if (lent && !lent->buffer.empty()) {
      lent->buffer.front() = std::byte{0};  // Windows may use the memory until HANDLE_CLOSING
    }
    AsyncResult result{static_cast<std::uintptr_t>(stage), kErrorWinHttpOperationCancelled};
    notify(request, kStatusRequestError, &result, sizeof(result));
  }
  notify(request, kStatusHandleClosing, &request.handle, sizeof(request.handle));
  guard.lock();
}

/// Notifies the program, if the mask allows it. Returns false when no further notification of the request may follow.
bool WinHttp::notify(HttpRequestHandle& request, std::uint32_t status, void* information, std::uint32_t length) {
  Guard guard(kernel_.mutex);
  if (request.finished || ended_) {
    return false;
  }
  request.finished = status == kStatusHandleClosing;
  if (request.callback != nullptr && (request.known.callbackMask & status) != 0) {
    request.delivering.push_back(std::this_thread::get_id());
    const std::uintptr_t context = request.bound ? request.known.context : 0;
    guard.unlock();
    request.callback(request.handle, context, status, information, length);
    guard.lock();
    leave(request);
  }
  return !request.closing;
}

/// Completes the call in flight. When its handle has been closed meanwhile, close() ends the call instead, unless
/// onClose says otherwise.
void WinHttp::finish(HttpRequestHandle& request, const HttpPending& call, std::uint32_t status, void* information,
                     std::uint32_t length) {
  Guard guard(kernel_.mutex);
  if (request.finished) {
    return;
  }
  if (request.closing && onClose != OnClose::kDelivered) {
    request.pending = call;
    request.silenced = true;
    kernel_.wake();
    return;
  }
  request.inFlight = false;
  guard.unlock();
  notify(request, status, information, length);
}

void WinHttp::fail(HttpRequestHandle& request, const HttpPending& call, ErrorCode error) {
  AsyncResult result{static_cast<std::uintptr_t>(call.stage), error};
  finish(request, call, kStatusRequestError, &result, sizeof(result));
}

/// Sends a notification without a context: HANDLE_CREATED of every handle, HANDLE_CLOSING of sessions and connections.
void WinHttp::unbound(HttpHandle& object, std::uint32_t status) {
  if (object.callback != nullptr && (object.known.callbackMask & status) != 0) {
    object.callback(object.handle, 0, status, &object.handle, sizeof(object.handle));
  }
}

Status WinHttp::WinHttpCloseHandle(NativeHandle handle) {
  kernel_.faults.note(__func__);
  Guard guard(kernel_.mutex);
  const auto object = kernel_.take<HttpHandle>(handle, __func__);
  if (object == nullptr) {
    return Failure{kErrorInvalidHandle};
  }
  const auto request = std::dynamic_pointer_cast<HttpRequestHandle>(object);
  if (request == nullptr) {
    guard.unlock();
    unbound(*object, kStatusHandleClosing);
    return kDone;
  }
  request->closing = true;
  request->known.closed = true;
  if (!request->bound || goesInline(*request, true)) {
    close(guard, *request);
  } else {
    needWorker(request);
  }
  return kDone;
}

}  // namespace sim
