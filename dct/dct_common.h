#pragma once

#include <cstdint>
#include <string>

#include "core/bag/property_bag.h"
#include "platform/handle.h"
#include "platform/processes.h"

/// Runs the collection script. The steps of a collection are fixed here. A concrete class says where the folders are,
/// how long to wait for the script, and what some texts are: by the virtual operations, which stand in the order of
/// their slots.
///
/// After a success a result bag holds "FileName", the full path of the bundle. After a failure it holds an error code
/// (ResultCode, or the number of the Windows call that failed) and a text. One thread at a time; every operation blocks
/// until it is done.
///
/// The parts of an operation have files of their own: request_filter.h turns a request into arguments of the script,
/// query/query_command.h runs the query script, query/capability_query.h keeps its answer.
class dct_common {
 public:
  /// \param cancelEvent  stops the script when it is set; null when nothing can stop it. Stays the caller's.
  explicit dct_common(platform::NativeHandle cancelEvent = nullptr) : cancelEvent_(cancelEvent) {}
  dct_common(const dct_common&) = delete;
  dct_common& operator=(const dct_common&) = delete;
  virtual ~dct_common() = default;

  /// Checks whether a collection is possible. This one always returns true; another one stores the error on false.
  virtual bool validate(CORE::PropertyBag& request, CORE::PropertyBag& result);

  /// Makes one collection, from the checks to the end of the script. On false the result bag holds the error: 130 no
  /// temporary folder, 80 no install path, 70 no script, 60 script not started, or what validate and monitorDCTProcess
  /// have stored.
  virtual bool invokeDCTScript(CORE::PropertyBag& request, CORE::PropertyBag& result);

  /// Waits for the script and stores the outcome. True when there is a bundle. Takes over the handles of the process.
  virtual bool monitorDCTProcess(CORE::PropertyBag& request, platform::ProcessInformation process,
                                 std::wstring bundlePath, CORE::PropertyBag& result) = 0;
  /// Returns the time limit of the script in milliseconds; platform::kInfinite for none.
  virtual std::uint32_t getScriptTimeout() = 0;
  /// Returns the folder of the product's installation; empty when it is not known.
  virtual std::wstring getInstallPath() = 0;
  /// Returns the folder for the script's temporary files and the bundle, without a trailing separator; empty when there
  /// is none.
  virtual std::wstring getTempFolder() = 0;
  /// Stores the full path of the bundle that the script is to write in `out`.
  virtual void getBundlePath(std::wstring& out, CORE::PropertyBag& request, std::wstring tempFolder) = 0;
  /// Returns a text of the concrete class.
  /// \param which  0: its name in the log line with the command line; 1: the error text for a missing install path. Any
  ///               other number gives an empty text.
  virtual std::wstring getMessage(int which) = 0;

  /// Returns the last arguments of the script's command line: filterArguments() of the request (request_filter.h). Runs
  /// the capability query first, unless it has run before. When the query fails or its answer is not usable, what it
  /// wrote to its standard error is logged at WARN.
  std::wstring getDCTFilter(CORE::PropertyBag& request);

  /// Runs a command in the script folder: see runQueryCommand. `output` gets what it wrote to its standard output, and
  /// is unchanged when it failed. Without an install path the error is 80.
  bool runDctCommand(const std::wstring& command, CORE::PropertyBag& result, std::string& output);

  /// Asks the script what it supports. On true the bag holds the answer and "Version" "2". On false it holds the error,
  /// which is 13 when the answer cannot be parsed.
  bool getLogLevel(CORE::PropertyBag& bag);

 private:
  /// Returns the folder of the scripts, below the install path; empty without an install path.
  std::wstring scriptFolder();
  std::wstring commandLine(const std::wstring& scriptPath, const std::wstring& bundlePath, CORE::PropertyBag& request);
  bool startScript(const std::wstring& command, const std::wstring& folder, platform::ProcessInformation& process,
                   CORE::PropertyBag& result);

 protected:
  std::wstring tempFolder_;
  platform::NativeHandle cancelEvent_;  ///< the caller's

 private:
  std::string queryErrors_;  ///< the first bytes of what the latest query wrote to its standard error
};
