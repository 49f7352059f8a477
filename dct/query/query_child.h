#pragma once

#include <cstdint>
#include <string>

#include "platform/handle.h"
#include "platform/processes.h"

/// A child process that does not outlive its owner. Unless wait() has seen it end, destruction ends it together with
/// its own children, which are in the same job. Children that are left when it has ended by itself go on. One thread at
/// a time.
class QueryChild {
 public:
  QueryChild() = default;
  QueryChild(const QueryChild&) = delete;
  QueryChild& operator=(const QueryChild&) = delete;
  ~QueryChild();

  /// Starts the child at normal priority in a folder. It inherits these standard handles and every other inheritable
  /// handle of the process. A child without a job is logged at WARN: only the child itself can be ended then.
  platform::Status start(const std::wstring& command, const std::wstring& folder,
                         const platform::StandardHandles& handles);
  /// Waits until the child has ended or the time has passed. `value` is the wait result.
  platform::Result<std::uint32_t> wait(std::uint32_t milliseconds);
  platform::Result<std::uint32_t> exitCode() const;

 private:
  /// Ends the child and its children. A failure is logged at WARN.
  void end() const;

  platform::KernelHandle job_;
  platform::ProcessInformation process_;
  bool running_ = false;  ///< started, and not seen to end
};
