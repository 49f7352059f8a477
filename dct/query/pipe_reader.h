#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "platform/handle.h"
#include "platform/result.h"

/// Reads what a child writes into two pipes, its standard output and its standard error, on a thread of its own, until
/// both end.
///
/// It never waits inside a read, because another process may have inherited a write end and may hold it for ever. It
/// reads only what is in the pipes. Once finish() has said that the child has ended, all that the child wrote is in the
/// pipes, so the reader stops when they are empty; when somebody else keeps filling them, after a limited number of
/// reads. All operations belong to the owner's thread.
class PipeReader {
 public:
  /// Bytes of the standard output that are kept. Output beyond them is read and dropped, with one WARN line.
  static constexpr std::size_t kMaxOutputBytes = std::size_t{128} << 20;
  /// Bytes of the standard error that are kept. What is beyond them is read and dropped.
  static constexpr std::size_t kMaxErrorBytes = std::size_t{4} << 10;

  PipeReader(platform::KernelHandle output, platform::KernelHandle errors, std::size_t maxOutputBytes = kMaxOutputBytes)
      : output_{std::move(output), maxOutputBytes}, errors_{std::move(errors), kMaxErrorBytes} {}
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;
  /// Calls finish().
  ~PipeReader() { finish(); }

  /// Starts the thread. False when the system cannot make one.
  bool start();
  /// Says that the child has ended, and waits until the thread has stopped.
  void finish();
  /// Returns what was read of the standard output. Call it after finish().
  /// \throws what the thread threw.
  std::string takeOutput();
  /// Returns the same without taking it, whatever the thread threw. Call it after finish().
  std::string_view output() const { return output_.text; }
  /// Returns the first bytes of the standard error. Call it after finish().
  std::string takeErrors() { return std::move(errors_.text); }

 private:
  struct Source {
    platform::KernelHandle pipe;  ///< none: it has ended
    std::size_t maxBytes;
    std::string text{};
  };

  void run() noexcept;
  void readAll();
  bool readSome(Source& source, std::span<std::byte> buffer);
  void append(Source& source, std::span<const std::byte> bytes);

  // These four are the thread's while it runs, and the owner's after finish(): the end of a thread orders both.
  Source output_;
  Source errors_;
  bool dropped_ = false;  ///< the WARN line was logged
  std::exception_ptr failure_;
  std::atomic<bool> childEnded_{false};
  std::thread thread_;
};
