#include <algorithm>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The request body: made ready before the send, and fed to WinHTTP chunk by chunk when it comes from a file.

namespace {

constexpr std::size_t kChunkSize = 4194304;  // bytes

}  // namespace

bool WinHttpRequest::prepareBody(HttpMethod method) {
  if (method != HttpMethod::kPost && method != HttpMethod::kPut) {
    return true;
  }
  if (!filePath_.empty()) {
    return prepareFile();
  }
  if (outgoing_.size() > maxRequestLength_) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request data size is too large");
    return false;
  }
  totalLength_ = static_cast<std::uint32_t>(outgoing_.size());
  bytesSent_ = totalLength_;  // the whole body goes out with the send itself
  return true;
}

bool WinHttpRequest::prepareFile() {
  const std::wstring path = CORE::to_wstr(filePath_, CORE::kUtf8);
  {
    const std::lock_guard guard(streamMutex_);
    stream_.open(path);  // a file that does not open shows at the first chunk, or here when it has no size
  }
  const std::uint64_t size = CORE::fileSize(path);
  if (size > maxRequestLength_) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request data size is too large");
    return false;
  }
  totalLength_ = static_cast<std::uint32_t>(size);
  chunk_.resize(std::min<std::size_t>(kChunkSize, totalLength_));
  return true;
}

void WinHttpRequest::closeUpload() noexcept {
  const std::lock_guard guard(streamMutex_);
  stream_.close();
}

bool WinHttpRequest::continueUpload() {
  if (bytesSent_ != totalLength_) {
    return UploadData();
  }
  closeUpload();
  return ReceiveResponse();
}

bool WinHttpRequest::writeComplete(std::uint32_t bytes) {
  bytesSent_ += std::min(bytes, totalLength_ - bytesSent_);
  return continueUpload();
}

bool WinHttpRequest::UploadData() {
  std::span<std::byte> part(chunk_);
  {
    const std::lock_guard guard(streamMutex_);
    part = part.first(std::min<std::size_t>(part.size(), totalLength_ - bytesSent_));
    // A file that has become shorter fails here: the server would wait for the rest for ever.
    if (!stream_.good() || stream_.read(part) != part.size()) {
      CORE::log(CORE::kError, L"WinHttpRequest::UploadData(): File stream is invalid");
      return false;
    }
  }
  const auto call = handles_.useRequest();
  if (!call) {
    if (isDecided()) {
      return true;
    }
    CORE::log(CORE::kError, L"WinHttpRequest::UploadData(): Request handle doesn't exist");
    return false;
  }
  const auto written = platform::current().winHttp.WinHttpWriteData(call.handle(), part);
  if (!written) {
    CORE::log(CORE::kError, L"WinHttpRequest::UploadData(): WinHttpWritedata failed: 0x%x %s",  // kept: lower-case d
              written.error, CORE::systemErrorText(written.error));
    return false;
  }
  return true;
}
