#include "dct/query/pipe_reader.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace {

constexpr std::uint32_t kPollInterval = 5;
constexpr std::uint32_t kMaxDrainReads = 2000 / kPollInterval;
constexpr std::size_t kBufferBytes = std::size_t{64} << 10;

void logFailure(platform::ErrorCode error) {
  if (error != platform::kErrorBrokenPipe) {  // which is how a pipe ends
    CORE::log(CORE::kError, L"dct_common::runDctCommand::<lambda_1>::operator ()(): %s",
              CORE::format(L"Failed to read pipe with error %s.", CORE::systemErrorText(error)));
  }
}

}  // namespace

bool PipeReader::start() {
  try {
    thread_ = std::thread([this] { run(); });
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void PipeReader::finish() {
  childEnded_.store(true);
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::string PipeReader::takeOutput() {
  if (failure_) {
    std::rethrow_exception(failure_);
  }
  return std::move(output_);
}

void PipeReader::run() noexcept {
  try {
    readAll();
  } catch (...) {
    failure_ = std::current_exception();
  }
  pipe_.reset();  // a child that still writes gets an error then instead of waiting for a reader
}

void PipeReader::readAll() {
  const platform::Platform& windows = platform::current();
  std::vector<std::byte> buffer(kBufferBytes);
  for (std::uint32_t drainReads = 0; drainReads < kMaxDrainReads;) {
    const bool ended = childEnded_.load();  // before the look: what the child wrote is there now
    drainReads += ended ? 1 : 0;
    const auto waiting = windows.processes.PeekNamedPipe(pipe_.get());
    if (!waiting) {
      return logFailure(waiting.error);
    }
    if (waiting.value == 0) {
      if (ended) {
        return;
      }
      windows.processes.Sleep(kPollInterval);
      continue;
    }
    const auto part = std::span(buffer).first(std::min<std::size_t>(waiting.value, buffer.size()));
    const auto got = windows.files.ReadFile(pipe_.get(), part);
    if (!got) {
      return logFailure(got.error);
    }
    append(part.first(got.value));
  }
}

void PipeReader::append(std::span<const std::byte> bytes) {
  const std::size_t taken = std::min(bytes.size(), maxOutputBytes_ - output_.size());
  output_.append(reinterpret_cast<const char*>(bytes.data()), taken);
  if (taken < bytes.size() && !dropped_) {
    dropped_ = true;
    CORE::log(CORE::kWarn, L"dct_common::runDctCommand(): Script output beyond %zu bytes is dropped.", maxOutputBytes_);
  }
}
