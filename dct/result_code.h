#pragma once

#include <cstdint>

/// The error codes of the collection's own failures, as a result bag holds them. What a call of Windows failed with
/// stands there under its own number.
enum class ResultCode : std::uint32_t {
  kUnreadableAnswer = 13,  ///< what the query wrote is no UTF-8, or no answer
  kNotStarted = 60,        ///< PowerShell could not be started on the script
  kNoScript = 70,
  kNoInstallPath = 80,
  kNoTempFolder = 130,
};
