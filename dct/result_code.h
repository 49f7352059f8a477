#pragma once

#include <cstdint>
#include <string>

#include "core/bag/property_bag.h"

/// The error codes of the collection's own failures, as a result bag holds them. The failure of a Windows call has that
/// call's own error number instead.
enum class ResultCode : std::uint32_t {
  kUnreadableAnswer = 13,  ///< the answer of the query cannot be parsed
  kNotStarted = 60,        ///< PowerShell could not be started on the script
  kNoScript = 70,          ///< the script is not in the agent's folder
  kNoInstallPath = 80,     ///< the setting "AgentInstallPath" is missing
  kNoTempFolder = 130,     ///< the temporary folder cannot be created
};

/// Stores a failure in the result bag.
/// \return false, for the caller to return in turn.
inline bool storeError(CORE::PropertyBag& result, ResultCode code, const std::wstring& text) {
  result.setError(static_cast<std::uint32_t>(code), text);
  return false;
}
