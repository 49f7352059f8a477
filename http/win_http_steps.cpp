#include <algorithm>
#include <new>
#include <vector>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The steps of an exchange: first the body goes out, then the response comes in. Each step asks WinHTTP for the next
// thing, whose notification runs the next step. A step ends the exchange by giving false.

bool WinHttpRequest::stepWithoutHandle(CORE::LogLevel level, CORE::FormatString<wchar_t> text) {
  if (hasEnded()) {
    return true;  // somebody closed the exchange meanwhile, which is no failure of the step
  }
  CORE::log(level, text);
  return false;
}

bool WinHttpRequest::continueUpload() {
  if (!body_.isSent()) {
    return UploadData();
  }
  body_.close();
  return ReceiveResponse();
}

bool WinHttpRequest::writeComplete(std::uint32_t bytes) {
  body_.addSent(bytes);
  return continueUpload();
}

bool WinHttpRequest::UploadData() {
  const auto chunk = body_.nextChunk();
  if (!chunk) {
    CORE::log(CORE::kError, L"WinHttpRequest::UploadData(): File stream is invalid");
    return false;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return stepWithoutHandle(CORE::kError, L"WinHttpRequest::UploadData(): Request handle doesn't exist");
  }
  const auto written = platform::current().winHttp.WinHttpWriteData(call.handle(), *chunk);
  if (!written) {
    CORE::log(CORE::kError, L"WinHttpRequest::UploadData(): WinHttpWritedata failed: 0x%x %s",  // kept: lower-case d
              written.error, CORE::systemErrorText(written.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::ReceiveResponse() {
  const auto call = handles_.useRequest();
  if (!call) {
    return stepWithoutHandle(CORE::kError, L"WinHttpRequest::ReceiveResponse(): Request handle doesn't exist");
  }
  const auto received = platform::current().winHttp.WinHttpReceiveResponse(call.handle());
  if (!received) {
    CORE::log(CORE::kError, L"WinHttpRequest::ReceiveResponse(): WinHttpReceiveResponse failed: 0x%x %s",
              received.error, CORE::systemErrorText(received.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::CheckHeaders() {
  {
    const auto call = handles_.useRequest();  // not held across QueryData, which borrows the handle itself
    if (!call) {
      return stepWithoutHandle(CORE::kError, L"WinHttpRequest::CheckHeaders(): Request handle doesn't exist");
    }
    const auto status = platform::current().winHttp.WinHttpQueryHeaders(
        call.handle(), platform::kQueryStatusCode | platform::kQueryFlagNumber);
    if (status) {
      response_.setStatus(status.value);
      CORE::log(CORE::kDebug, L"WinHttpRequest::CheckHeaders(): HTTP status code received: %lu", status.value);
    } else {
      CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Unable to get status code. Error: 0x%x %s",
                status.error, CORE::systemErrorText(status.error));
    }
    if (!readRawHeaders(call.handle())) {
      return false;
    }
  }
  return QueryData();
}

bool WinHttpRequest::readRawHeaders(platform::NativeHandle request) {
  auto& winHttp = platform::current().winHttp;
  const auto logFailure = [](platform::ErrorCode error) {
    CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Unable to get all headers. Error: %s",
              CORE::systemErrorText(error));
  };
  const auto needed = winHttp.WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, {});
  if (!needed && needed.error != platform::kErrorInsufficientBuffer) {
    logFailure(needed.error);
    return false;
  }
  try {
    std::vector<wchar_t> buffer(needed.value / sizeof(wchar_t) + 1);
    const auto read = winHttp.WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, buffer);
    if (!read) {
      logFailure(read.error);
      return false;
    }
    const std::size_t length = std::min(read.value / sizeof(wchar_t), buffer.size());
    response_.setHeaders(CORE::toUtf8Lossy({buffer.data(), length}));
  } catch (const std::bad_alloc&) {
    CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Out of memory");
    return false;
  }
  return true;
}

bool WinHttpRequest::QueryData() {
  const auto call = handles_.useRequest();
  if (!call) {
    return stepWithoutHandle(CORE::kError, L"WinHttpRequest::QueryData(): Request handle doesn't exist");
  }
  const auto asked = platform::current().winHttp.WinHttpQueryDataAvailable(call.handle());
  if (!asked) {
    CORE::log(CORE::kError, L"WinHttpRequest::QueryData(): Unable to query data available, error 0x%x %s", asked.error,
              CORE::systemErrorText(asked.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::DataAvailable(std::uint32_t bytes) {
  if (bytes == 0) {  // kept: the end of the body is recognised before this step
    CORE::log(CORE::kDebug, L"WinHttpRequest::DataAvailable(): No data left to read");
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return stepWithoutHandle(CORE::kError, L"WinHttpRequest::DataAvailable(): Request handle doesn't exist");
  }
  if (!response_.canTake(bytes)) {
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): The answer is longer than %zu bytes",
              Response::kMaxBodyBytes);
    return false;
  }
  std::span<std::byte> room;
  try {
    room = response_.roomFor(bytes);
  } catch (const std::bad_alloc&) {
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): Out of memory");
    return false;
  }
  const auto read = platform::current().winHttp.WinHttpReadData(call.handle(), room);
  if (!read) {
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): Failed to read data response, error 0x%x %s", read.error,
              CORE::systemErrorText(read.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::endOfBody() {
  response_.endBody();
  return false;
}

bool WinHttpRequest::readComplete(std::uint32_t bytes) {
  response_.appendRead(bytes);
  return QueryData();
}
