#pragma once

#include "platform/handle.h"

/// The machine-wide mutex "Global\meridon_lumen_dct_mutex", which keeps a second collection out. Owned from a
/// successful GetMutex to destruction, which releases and closes it. Main thread only: a mutex belongs to its thread.
class DCTMutex {
 public:
  DCTMutex() = default;
  DCTMutex(const DCTMutex&) = delete;
  DCTMutex& operator=(const DCTMutex&) = delete;
  ~DCTMutex();

  /// Creates and takes the mutex without waiting. False, with one ERROR line, when another process has it or it cannot
  /// be created.
  bool GetMutex();

 private:
  platform::KernelHandle mutex_;
};
