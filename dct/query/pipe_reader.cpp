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

constexpr std::uint32_t kPollMilliseconds = 5;
constexpr std::uint32_t kMaxReadsAfterChild = 400;
constexpr std::size_t kBufferBytes = std::size_t{64} << 10;

// The text names the operation of dct_common that runs the query.
void logFailure(platform::ErrorCode error) {
  if (error != platform::kErrorBrokenPipe) {  // a broken pipe is the ordinary end
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
  pipe_.reset();  // a child that still writes then gets an error and does not wait for a reader
}

void PipeReader::readAll() {
  const platform::Platform& windows = platform::current();
  std::vector<std::byte> buffer(kBufferBytes);
  for (std::uint32_t readsAfterChild = 0; readsAfterChild < kMaxReadsAfterChild;) {
    // Read before the pipe is: when a child has ended, all that it wrote is in the pipe, so an empty pipe is the end.
    const bool childEnded = childEnded_.load();
    readsAfterChild += childEnded ? 1 : 0;
    const auto waiting = windows.processes.PeekNamedPipe(pipe_.get());
    if (!waiting) {
      return logFailure(waiting.error);
    }
    if (waiting.value == 0) {
      if (childEnded) {
        return;
      }
      windows.processes.Sleep(kPollMilliseconds);
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

// The text names the operation of dct_common that runs the query.
void PipeReader::append(std::span<const std::byte> bytes) {
  const std::size_t taken = std::min(bytes.size(), maxOutputBytes_ - output_.size());
  output_.append(reinterpret_cast<const char*>(bytes.data()), taken);
  if (taken < bytes.size() && !dropped_) {
    dropped_ = true;
    CORE::log(CORE::kWarn, L"dct_common::runDctCommand(): Script output beyond %zu bytes is dropped.", maxOutputBytes_);
  }
}
