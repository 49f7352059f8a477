#pragma once

#include "dct/dct_common.h"

/// The collection of a desktop agent: paths from the agent's settings, no time limit, and an outcome that is judged by
/// whether the bundle exists when the script has ended, not by the script's exit code.
class dct_Agent : public dct_common {
 public:
  using dct_common::dct_common;

  /// Makes sure that the temporary folder exists; error 130 when it cannot be created.
  bool validate(CORE::PropertyBag& request, CORE::PropertyBag& result) override;
  /// Stores "FileName" when the bundle exists, otherwise an error text without a code: the script was cancelled, or it
  /// failed, worded by its exit code as a system error number.
  bool monitorDCTProcess(CORE::PropertyBag& request, platform::ProcessInformation process, std::wstring bundlePath,
                         CORE::PropertyBag& result) override;
  std::uint32_t getScriptTimeout() override;
  std::wstring getInstallPath() override;
  std::wstring getTempFolder() override;
  void getBundlePath(std::wstring& out, CORE::PropertyBag& request, std::wstring tempFolder) override;
  std::wstring getMessage(int which) override;

 private:
  /// True when the cancel event, not the process or the time-out, has ended the wait.
  bool waitForScript(platform::NativeHandle process);
};
