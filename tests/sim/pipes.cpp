#include "tests/sim/pipes.h"

#include <algorithm>

#include "platform/objects.h"

namespace sim {

namespace {
constexpr platform::ErrorCode kErrorNoData = 232;  // the pipe is being closed: nobody reads any more
}

PipeEnd::PipeEnd(Kernel& kernel, std::shared_ptr<PipeBuffer> buffer, bool writeEnd)
    : pipe(std::move(buffer)), writes(writeEnd), kernel_(kernel) {
  ++(writes ? pipe->writers : pipe->readers);
}

PipeEnd::~PipeEnd() {
  --(writes ? pipe->writers : pipe->readers);
  kernel_.wake();
}

platform::Result<std::uint32_t> PipeEnd::read(Guard& guard, std::span<std::byte> buffer) {
  kernel_.waitUntil(guard, platform::kInfinite, "ReadFile on a pipe",
                    [&] { return !pipe->bytes.empty() || pipe->writers == 0; });
  if (pipe->bytes.empty()) {
    return {false, 0, platform::kErrorBrokenPipe};
  }
  const auto count = static_cast<std::ptrdiff_t>(std::min(buffer.size(), pipe->bytes.size()));
  std::copy_n(pipe->bytes.begin(), count, buffer.begin());
  pipe->bytes.erase(pipe->bytes.begin(), pipe->bytes.begin() + count);
  kernel_.wake();
  return {true, static_cast<std::uint32_t>(count), 0};
}

platform::Result<std::uint32_t> PipeEnd::write(Guard& guard, std::span<const std::byte> data,
                                               const std::function<bool()>& stop) {
  std::size_t written = 0;
  while (written < data.size()) {
    kernel_.idle(guard, [&] {
      return pipe->bytes.size() < pipe->capacity || pipe->readers == 0 || (stop != nullptr && stop());
    });
    if (pipe->readers == 0 || (stop != nullptr && stop())) {
      return {false, static_cast<std::uint32_t>(written), kErrorNoData};
    }
    const auto part = data.subspan(written, std::min(data.size() - written, pipe->capacity - pipe->bytes.size()));
    pipe->bytes.insert(pipe->bytes.end(), part.begin(), part.end());
    written += part.size();
    kernel_.wake();
  }
  return {true, static_cast<std::uint32_t>(written), 0};
}

}  // namespace sim
