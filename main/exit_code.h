#pragma once

/// The exit codes of the process. The stage that ends with each one: see the table in main/run.cpp.
enum class ExitCode : int {
  kSuccess = 0,
  kInsufficientPermissions = 1,
  kCollectionInProgress = 2,
  kBadInvocation = 3,
  kCollectionFailed = 4,
  kUploadNotStarted = 5,
  kWaitFailed = 6,
  kUploadFailed = 7,
};
