#pragma once

#include "platform/handle.h"

/// The machine-wide mutex "Global\meridon_lumen_dct_mutex", which prevents a second collection at the same time. A
/// successful GetMutex takes it; the destructor releases and closes it. Main thread only: a mutex of Windows belongs to
/// the thread that took it.
class DCTMutex {
 public:
  DCTMutex() = default;
  DCTMutex(const DCTMutex&) = delete;
  DCTMutex& operator=(const DCTMutex&) = delete;
  ~DCTMutex();

  /// Creates and takes the mutex without waiting.
  /// \return false, with one ERROR line, when another process has it or when it cannot be created.
  bool GetMutex();

 private:
  platform::KernelHandle mutex_;
};
