#pragma once

#include <cstdint>
#include <string>

#include "core/bag/property_bag.h"
#include "platform/handle.h"
#include "platform/processes.h"

/// Runs the collection script. The run itself is fixed here; where things lie, how long to wait and what the texts are
/// comes from the virtual operations of a concrete class, which stand in the order of their slots.
///
/// A result bag holds "FileName", the bundle's full path, after a success, and an error code with its text after a
/// failure. One thread at a time; everything blocks until it is done.
class dct_common {
 public:
  /// \param cancelEvent  stops the script when it is set; lent, null for a script that cannot be stopped.
  explicit dct_common(platform::NativeHandle cancelEvent = nullptr) : cancelEvent_(cancelEvent) {}
  dct_common(const dct_common&) = delete;
  dct_common& operator=(const dct_common&) = delete;
  virtual ~dct_common() = default;

  /// Whether the surroundings allow a collection. This one always does.
  virtual bool validate(CORE::PropertyBag& request, CORE::PropertyBag& result);

  /// One collection, from the checks to the end of the script. On false the result bag tells why: 130 no temporary
  /// folder, 80 no install path, 70 no script, 60 script not started, or what validate and the monitor stored.
  virtual bool invokeDCTScript(CORE::PropertyBag& request, CORE::PropertyBag& result);

  /// Waits for the script and judges the outcome. Takes over the handles of the process.
  virtual bool monitorDCTProcess(CORE::PropertyBag& request, platform::ProcessInformation process,
                                 std::wstring bundlePath, CORE::PropertyBag& result) = 0;
  /// Milliseconds; platform::kInfinite for no limit.
  virtual std::uint32_t getScriptTimeout() = 0;
  /// Empty when it is not known.
  virtual std::wstring getInstallPath() = 0;
  /// Without a trailing separator; empty when there is none.
  virtual std::wstring getTempFolder() = 0;
  virtual void getBundlePath(std::wstring& out, CORE::PropertyBag& request, std::wstring tempFolder) = 0;
  /// 0: the caller's name in the command-line log line; 1: the text for a missing install path; else empty.
  virtual std::wstring getMessage(int which) = 0;

  /// The tail of the script's command line for a request: which features ("Features", separated by commas, those that
  /// the script supports) and which dumps ("DCTFilterType", or "Dumps" when "Version" is not 1) to gather. Runs the
  /// capability query when it has not run yet. Unsupported names are logged at WARN and left out.
  std::wstring getDCTFilter(CORE::PropertyBag& request);

  /// Runs a command in the script folder: see runQueryCommand. 80 without an install path.
  bool runDctCommand(const std::wstring& command, CORE::PropertyBag& result, std::string& output);

  /// Asks the script what it supports. True: the bag holds its answer and "Version" "2". False: the bag holds the
  /// error, 13 when the answer is not UTF-8 or cannot be parsed.
  bool getLogLevel(CORE::PropertyBag& bag);

 private:
  /// The folder of the scripts, below the install path; empty without one.
  std::wstring scriptFolder();
  std::wstring commandLine(const std::wstring& scriptPath, const std::wstring& bundlePath, CORE::PropertyBag& request);
  bool startScript(const std::wstring& command, const std::wstring& folder, platform::ProcessInformation& process,
                   CORE::PropertyBag& result);

 protected:
  std::wstring tempFolder_;
  platform::NativeHandle cancelEvent_;
};
