#pragma once

#include <cstdint>
#include <string>

#include "platform/handle.h"
#include "platform/processes.h"

/// A child process that does not outlive its owner: unless it was seen to end, destruction ends it together with its
/// own children, which a job holds together. Its children that it leaves behind when it ends by itself are let be. One
/// thread at a time.
class QueryChild {
 public:
  QueryChild() = default;
  QueryChild(const QueryChild&) = delete;
  QueryChild& operator=(const QueryChild&) = delete;
  ~QueryChild();

  /// Starts the child at normal priority with these standard handles inherited (with every other inheritable handle of
  /// the process). Without a job, which is logged at WARN, only the child itself can be ended.
  platform::Status start(const std::wstring& command, const std::wstring& folder,
                         const platform::StandardHandles& handles);
  /// value: the wait result. Milliseconds.
  platform::Result<std::uint32_t> wait(std::uint32_t milliseconds);
  platform::Result<std::uint32_t> exitCode() const;

 private:
  void end() const;

  platform::KernelHandle job_;
  platform::ProcessInformation process_;
  bool running_ = false;
};
