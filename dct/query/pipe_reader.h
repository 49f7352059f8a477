#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <span>
#include <string>
#include <thread>

#include "platform/handle.h"
#include "platform/result.h"

/// Reads what a child writes into a pipe, on a thread of its own, until the pipe ends.
///
/// It never waits inside a read: another process may have inherited the write end and hold it for ever. So it reads
/// only what is there and, once told that the child has ended, stops when the pipe is empty or, should somebody keep
/// filling it, after a bounded number of reads; what the child itself wrote is in the pipe by then. All operations
/// belong to the owner's thread.
class PipeReader {
 public:
  /// Bytes; output beyond it is read and dropped, with one WARN line.
  static constexpr std::size_t kMaxOutputBytes = std::size_t{128} << 20;

  explicit PipeReader(platform::KernelHandle pipe, std::size_t maxOutputBytes = kMaxOutputBytes)
      : maxOutputBytes_(maxOutputBytes), pipe_(std::move(pipe)) {}
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;
  /// As finish().
  ~PipeReader() { finish(); }

  /// Starts the thread. False when there is none to be had.
  bool start();
  /// Tells the reader that the child has ended, and waits until it has stopped.
  void finish();
  /// What was read; call it after finish().
  /// \throws what the thread threw.
  std::string takeOutput();

 private:
  void run() noexcept;
  void readAll();
  void append(std::span<const std::byte> bytes);

  const std::size_t maxOutputBytes_;
  platform::KernelHandle pipe_;  // the thread's while it runs
  std::string output_;
  bool dropped_ = false;
  std::exception_ptr failure_;
  std::atomic<bool> childEnded_{false};
  std::thread thread_;
};
