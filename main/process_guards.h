#pragma once

#include <string>

#include "platform/handle.h"

/// Whether the process runs as the local system account (S-1-5-18), judged by the user of its token.
/// Every failure of the check itself is logged at ERROR and counts as "no". Main thread only.
/// Source: GetTokenInformation (TokenUser), SECURITY_LOCAL_SYSTEM_RID.
bool IsSystemProcess();

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

/// Removes the collection bundle from disk when it is destroyed. A removal that fails is logged at WARN and changes
/// nothing else; an empty path means that there is nothing to remove.
class DCTDeleter {
 public:
  /// \param path  UTF-8. The file system takes narrow paths in the process's ANSI code page, which agrees with UTF-8 on
  ///              ASCII characters.
  explicit DCTDeleter(const std::string& path) : path_(path) {}
  DCTDeleter(const DCTDeleter&) = delete;
  DCTDeleter& operator=(const DCTDeleter&) = delete;
  ~DCTDeleter();

 private:
  void removeBundle() const;

  std::string path_;
};
