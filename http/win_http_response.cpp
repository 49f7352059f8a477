#include <algorithm>
#include <new>
#include <vector>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The steps that take the response in. Each ends the exchange by giving false.

namespace {

platform::WinHttp& winHttp() { return platform::current().winHttp; }

}  // namespace

bool WinHttpRequest::ReceiveResponse() {
  const auto call = handles_.useRequest();
  if (!call) {
    if (isDecided()) {
      return true;
    }
    CORE::log(CORE::kError, L"WinHttpRequest::ReceiveResponse(): Request handle doesn't exist");
    return false;
  }
  const auto received = winHttp().WinHttpReceiveResponse(call.handle());
  if (!received) {
    CORE::log(CORE::kError, L"WinHttpRequest::ReceiveResponse(): WinHttpReceiveResponse failed: 0x%x %s",
              received.error, CORE::systemErrorText(received.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::CheckHeaders() {
  {
    const auto call = handles_.useRequest();
    if (!call) {
      if (isDecided()) {
        return true;
      }
      CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Request handle doesn't exist");
      return false;
    }
    const auto status =
        winHttp().WinHttpQueryHeaders(call.handle(), platform::kQueryStatusCode | platform::kQueryFlagNumber);
    if (status) {
      statusCode_ = status.value;
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
  const auto failed = [](platform::ErrorCode error) {
    CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Unable to get all headers. Error: %s",
              CORE::systemErrorText(error));
    return false;
  };
  const auto needed = winHttp().WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, {});
  if (!needed && needed.error != platform::kErrorInsufficientBuffer) {
    return failed(needed.error);
  }
  try {
    std::vector<wchar_t> buffer(needed.value / sizeof(wchar_t) + 1);
    const auto read = winHttp().WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, buffer);
    if (!read) {
      return failed(read.error);
    }
    const std::size_t length = std::min(read.value / sizeof(wchar_t), buffer.size());
    std::string text = CORE::toUtf8Lossy({buffer.data(), length});
    const std::lock_guard guard(resultMutex_);
    responseHeaders_ = std::move(text);
  } catch (const std::bad_alloc&) {
    CORE::log(CORE::kError, L"WinHttpRequest::CheckHeaders(): Out of memory");
    return false;
  }
  return true;
}

bool WinHttpRequest::QueryData() {
  const auto call = handles_.useRequest();
  if (!call) {
    if (isDecided()) {
      return true;
    }
    CORE::log(CORE::kError, L"WinHttpRequest::QueryData(): Request handle doesn't exist");
    return false;
  }
  const auto asked = winHttp().WinHttpQueryDataAvailable(call.handle());
  if (!asked) {
    CORE::log(CORE::kError, L"WinHttpRequest::QueryData(): Unable to query data available, error 0x%x %s", asked.error,
              CORE::systemErrorText(asked.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::DataAvailable(std::uint32_t bytes) {
  if (bytes == 0) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::DataAvailable(): No data left to read");
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    if (isDecided()) {
      return true;
    }
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): Request handle doesn't exist");
    return false;
  }
  try {
    // Grows only: between reads nothing is pending on the buffer.
    readBuffer_.resize(std::max(readBuffer_.size(), std::size_t{bytes} + 1));
  } catch (const std::bad_alloc&) {
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): Out of memory");
    return false;
  }
  const auto read = winHttp().WinHttpReadData(call.handle(), std::span(readBuffer_).first(bytes));
  if (!read) {
    CORE::log(CORE::kError, L"WinHttpRequest::DataAvailable(): Failed to read data response, error 0x%x %s", read.error,
              CORE::systemErrorText(read.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::readComplete(std::uint32_t bytes) {
  const std::size_t length = std::min<std::size_t>(bytes, readBuffer_.size());
  {
    const std::lock_guard guard(resultMutex_);
    responseBody_.append(reinterpret_cast<const char*>(readBuffer_.data()), length);
  }
  return QueryData();
}
