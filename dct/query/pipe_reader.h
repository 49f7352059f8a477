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
/// It never waits inside a read, because another process may have inherited the write end and may hold it for ever. It
/// reads only what is in the pipe. Once finish() has said that the child has ended, all that the child wrote is in the
/// pipe, so the reader stops when the pipe is empty; when somebody else keeps filling it, after a limited number of
/// reads. All operations belong to the owner's thread.
class PipeReader {
 public:
  /// Bytes that are kept. Output beyond them is read and dropped, with one WARN line.
  static constexpr std::size_t kMaxOutputBytes = std::size_t{128} << 20;

  explicit PipeReader(platform::KernelHandle pipe, std::size_t maxOutputBytes = kMaxOutputBytes)
      : maxOutputBytes_(maxOutputBytes), pipe_(std::move(pipe)) {}
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;
  /// Calls finish().
  ~PipeReader() { finish(); }

  /// Starts the thread. False when the system cannot make one.
  bool start();
  /// Says that the child has ended, and waits until the thread has stopped.
  void finish();
  /// Returns what was read. Call it after finish().
  /// \throws what the thread threw.
  std::string takeOutput();

 private:
  void run() noexcept;
  void readAll();
  void append(std::span<const std::byte> bytes);

  const std::size_t maxOutputBytes_;
  // These four are the thread's while it runs, and the owner's after finish(): the end of a thread orders both.
  platform::KernelHandle pipe_;
  std::string output_;
  bool dropped_ = false;  ///< the WARN line was logged
  std::exception_ptr failure_;
  std::atomic<bool> childEnded_{false};
  std::thread thread_;
};
