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
  return std::move(output_.text);
}

void PipeReader::run() noexcept {
  try {
    readAll();
  } catch (...) {
    failure_ = std::current_exception();
  }
  output_.pipe.reset();  // a child that still writes then gets an error and does not wait for a reader
  errors_.pipe.reset();
}

void PipeReader::readAll() {
  std::vector<std::byte> buffer(kBufferBytes);
  for (std::uint32_t readsAfterChild = 0; readsAfterChild < kMaxReadsAfterChild && (output_.pipe || errors_.pipe);) {
    // Read before the pipes are: when a child has ended, all that it wrote is in them, so empty pipes are the end.
    const bool childEnded = childEnded_.load();
    readsAfterChild += childEnded ? 1 : 0;
    const bool gotOutput = readSome(output_, buffer);
    const bool gotErrors = readSome(errors_, buffer);
    if (gotOutput || gotErrors) {
      continue;
    }
    if (childEnded) {
      return;
    }
    platform::current().processes.Sleep(kPollMilliseconds);
  }
}

/// Reads what is in a pipe, at most one buffer. Closes the pipe at its end and after a failure.
/// \return whether there was anything.
bool PipeReader::readSome(Source& source, std::span<std::byte> buffer) {
  const platform::Platform& windows = platform::current();
  if (!source.pipe) {
    return false;
  }
  const auto waiting = windows.processes.PeekNamedPipe(source.pipe.get());
  if (waiting && waiting.value == 0) {
    return false;
  }
  const auto part = buffer.first(std::min<std::size_t>(waiting.value, buffer.size()));
  const auto got = waiting ? windows.files.ReadFile(source.pipe.get(), part) : waiting;
  if (!got) {
    source.pipe.reset();
    logFailure(got.error);
    return false;
  }
  append(source, part.first(got.value));
  return true;
}

// The text names the operation of dct_common that runs the query.
void PipeReader::append(Source& source, std::span<const std::byte> bytes) {
  const std::size_t taken = std::min(bytes.size(), source.maxBytes - source.text.size());
  source.text.append(reinterpret_cast<const char*>(bytes.data()), taken);
  if (taken < bytes.size() && &source == &output_ && !dropped_) {
    dropped_ = true;
    CORE::log(CORE::kWarn, L"dct_common::runDctCommand(): Script output beyond %zu bytes is dropped.", source.maxBytes);
  }
}
