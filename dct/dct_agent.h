#pragma once

#include "dct/dct_common.h"

/// The collection of a desktop agent. The paths come from the agent's settings, and the script has no time limit. The
/// collection has succeeded when the bundle exists at the end of the script, whatever the script's exit code is.
class dct_Agent : public dct_common {
 public:
  using dct_common::dct_common;

  /// Makes sure that the temporary folder exists; error 130 when it cannot be created.
  bool validate(CORE::PropertyBag& request, CORE::PropertyBag& result) override;
  /// Stores "FileName" when the bundle exists. Otherwise it stores an error text without a code: that the script was
  /// cancelled, or the system's text for the script's exit code.
  bool monitorDCTProcess(CORE::PropertyBag& request, platform::ProcessInformation process, std::wstring bundlePath,
                         CORE::PropertyBag& result) override;
  std::uint32_t getScriptTimeout() override;
  std::wstring getInstallPath() override;
  std::wstring getTempFolder() override;
  void getBundlePath(std::wstring& out, CORE::PropertyBag& request, std::wstring tempFolder) override;
  std::wstring getMessage(int which) override;

 private:
  /// Waits until the script has ended, the time limit has passed, or the cancel event is set.
  /// \return true when the cancel event has ended the wait.
  bool waitForScript(platform::NativeHandle process);
};
