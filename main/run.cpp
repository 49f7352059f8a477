#include "main/run.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "core/bag/property_bag.h"
#include "core/base/coreref.h"
#include "core/base/exception.h"
#include "core/crash/crash_handling.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/settings/configuration.h"
#include "core/text/convert.h"
#include "dct/dct_agent.h"
#include "main/account_check.h"
#include "main/bundle_deleter.h"
#include "main/collection_mutex.h"
#include "main/command_line.h"
#include "main/completion_event.h"
#include "platform/internet.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"
#include "upload/azure_blob_uploader.h"

namespace {

struct ProxySettings {
  std::string server, bypass, pacUrl;
};

std::string readProxySetting(const CORE::Setting& setting) {
  return CORE::to_mstr(CORE::readSetting(setting), CORE::kUtf8);
}

const char* orNone(const std::string& text) { return text.empty() ? "n/a" : text.c_str(); }

void logException() noexcept {
  try {
    CORE::log(CORE::kError, L"wWinMain(): %s", CORE::currentExceptionText());
  } catch (...) {
    CORE::log(CORE::kError, L"wWinMain(): %s", L"OutOfMem");
  }
}

// The texts of this file name wWinMain, which calls runProgram.

/// A run: one operation for each stage, which logs its own failure and then returns false. runStages() holds the table
/// of the stages and the exit code of each. The members stand in the order in which the stages fill them, so that their
/// destruction cleans up in the reverse order, whatever stage was reached.
class Run {
 public:
  Run() = default;
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run();

  ExitCode runStages();

 private:
  bool checkAccount();
  bool takeMutex();
  bool readCommandLine();
  bool checkUrl();
  bool collect();
  bool armDeleter();
  bool startUpload();
  bool waitForUpload();
  bool checkUploadResult();

  DCTMutex mutex_;
  platform::ArgumentVector arguments_;
  options options_;
  std::wstring url_;
  std::optional<CORE::PropertyBag> request_;
  std::optional<CORE::PropertyBag> result_;
  std::optional<dct_Agent> collector_;
  std::string bundlePath_;
  std::optional<DCTDeleter> deleter_;
  std::shared_ptr<CompletionEvent> completionEvent_;
  ProxySettings proxy_;
  CORE::Reference<AzureBlobUploader> uploader_;  ///< the run's own; a pending request holds another
};

ExitCode Run::runStages() {
  struct Stage {
    ExitCode failure;
    bool (Run::*run)();
  };
  static constexpr std::array kStages = {
      Stage{ExitCode::kInsufficientPermissions, &Run::checkAccount},
      Stage{ExitCode::kCollectionInProgress, &Run::takeMutex},
      Stage{ExitCode::kBadInvocation, &Run::readCommandLine},
      Stage{ExitCode::kBadInvocation, &Run::checkUrl},
      Stage{ExitCode::kCollectionFailed, &Run::collect},
      Stage{ExitCode::kCollectionFailed, &Run::armDeleter},
      Stage{ExitCode::kUploadNotStarted, &Run::startUpload},
      Stage{ExitCode::kWaitFailed, &Run::waitForUpload},
      Stage{ExitCode::kUploadFailed, &Run::checkUploadResult},
  };
  for (const Stage& stage : kStages) {
    try {
      if (!(this->*stage.run)()) {
        return stage.failure;
      }
    } catch (...) {
      logException();
      return stage.failure;
    }
  }
  return ExitCode::kSuccess;
}

Run::~Run() {
  uploader_.reset();
  proxy_ = {};
  if (completionEvent_) {
    completionEvent_->close();  // explicitly: the callback, which owns the object too, may outlive the run
  }
}

bool Run::checkAccount() {
  if (!IsSystemProcess()) {
    CORE::log(CORE::kError, L"wWinMain(): Insufficient permissions.");
    return false;
  }
  return true;
}

bool Run::takeMutex() {
  if (!mutex_.GetMutex()) {
    CORE::log(CORE::kError, L"wWinMain(): DCT collection is already in progress.");
    return false;
  }
  return true;
}

bool Run::readCommandLine() {
  auto& processes = platform::current().processes;
  int count = 0;
  auto split = processes.CommandLineToArgvW(processes.GetCommandLineW(), count);
  if (!split) {
    CORE::log(CORE::kError, L"wWinMain(): CommandLineToArgvW failed: 0x%x %s", split.error,
              CORE::systemErrorText(split.error));
  }
  arguments_ = std::move(split.value);
  if (!lParseCommandLine(count, arguments_.get(), options_)) {
    CORE::log(CORE::kError, L"wWinMain(): Invalid command line options.");
    CORE::log(CORE::kInfo, kUsage);
    return false;
  }
  return true;
}

bool Run::checkUrl() {
  url_ = CORE::to_wstr(options_.url, CORE::kUtf8);
  if (platform::current().internet.IsValidURL(url_) != platform::kSOk) {
    CORE::log(CORE::kError, L"wWinMain(): Invalid URL.");
    return false;
  }
  return true;
}

/// Makes PowerShell's own folder the current one. The collection starts "powershell.exe" by its bare name, which is not
/// in System32 itself. Windows searches the current folder before the PATH, which may name a folder that users can
/// write to.
bool leaveCallersFolder() {
  auto& system = platform::current().system;
  const auto folder = system.GetSystemDirectoryW();
  const platform::Status changed = folder ? system.SetCurrentDirectoryW(folder.value + L"\\WindowsPowerShell\\v1.0")
                                          : platform::Status{false, folder.error};
  if (!changed) {
    CORE::log(CORE::kError, L"wWinMain(): Unable to make PowerShell's folder the current folder: 0x%x %s",
              changed.error, CORE::systemErrorText(changed.error));
  }
  return changed.ok;
}

bool Run::collect() {
  if (!leaveCallersFolder()) {
    return false;
  }
  request_.emplace();
  result_.emplace();
  collector_.emplace();
  if (!collector_->invokeDCTScript(*request_, *result_)) {
    CORE::log(CORE::kError, L"wWinMain(): Invoking the DCT script failed. Error %d: %s", result_->getErrorCode(),
              result_->getErrorText(L"n/a"));
    return false;
  }
  return true;
}

bool Run::armDeleter() {
  const std::wstring path(result_->get(L"FileName", L""));
  try {
    bundlePath_ = CORE::to_mstr(path, CORE::kUtf8);
  } catch (...) {
    deleter_.emplace(path);  // the run ends here, but the bundle exists
    throw;
  }
  if (bundlePath_.empty()) {
    CORE::log(CORE::kError, L"wWinMain(): DCT file path is unexpectedly empty.");
    return false;
  }
  deleter_.emplace(bundlePath_);
  return true;
}

bool Run::startUpload() {
  completionEvent_ = std::make_shared<CompletionEvent>();
  if (!completionEvent_->open()) {
    return false;
  }
  proxy_.server = readProxySetting(CORE::kProxyServer);
  proxy_.bypass = readProxySetting(CORE::kProxyBypass);
  proxy_.pacUrl = readProxySetting(CORE::kProxyAutoConfigUrl);
  CORE::log(CORE::kInfo,
            L"wWinMain(): Uploading DCT log (%S) to url: %S. \nProxy Server: %S. Proxy Bypass: %S PACURL: %S.",
            bundlePath_, options_.url, orNone(proxy_.server), orNone(proxy_.bypass), orNone(proxy_.pacUrl));
  uploader_.reset(new AzureBlobUploader);
  uploader_->setProxyConfig(proxy_.server, proxy_.bypass, proxy_.pacUrl);
  const auto onDone = [event = completionEvent_](AzureBlobUploader*, bool succeeded) { event->report(succeeded); };
  if (!uploader_->uploadFile(bundlePath_, options_.url, "", onDone)) {
    CORE::log(CORE::kError, L"wWinMain(): Failed to start upload.");
    return false;
  }
  return true;
}

bool Run::waitForUpload() { return completionEvent_->wait(); }

bool Run::checkUploadResult() {
  if (!completionEvent_->succeeded()) {
    CORE::log(CORE::kError, L"wWinMain(): Upload failed.");
    return false;
  }
  CORE::log(CORE::kInfo, L"wWinMain(): DCT collection succeeded.");
  return true;
}

}  // namespace

ExitCode runProgram() {
  CORE::crashHandling::loadSettings();
  CORE::crashHandling::install();
  CORE::log(CORE::kInfo, L"wWinMain(): Starting DCT collection.");
  const auto runAndCleanUp = [] {  // the clean-up comes before the wait below
    Run run;
    return run.runStages();
  };
  const ExitCode exitCode = runAndCleanUp();
  CORE::crashHandling::waitForReport();
  return exitCode;
}
