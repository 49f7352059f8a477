#include "dct/query/query_child.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/objects.h"
#include "platform/platform.h"

// The texts name ScriptChild, which is this class.

namespace {

constexpr std::uint32_t kEndedExitCode = platform::kWaitTimeout;  ///< the child's when it has run for too long

void logNoJob(platform::ErrorCode error) {
  CORE::log(CORE::kWarn, L"ScriptChild::start(): No job, only the child itself can be ended: 0x%x %s", error,
            CORE::systemErrorText(error));
}

}  // namespace

QueryChild::~QueryChild() {
  if (!running_) {
    return;
  }
  try {
    end();
  } catch (...) {
    CORE::log(CORE::kWarn, L"ScriptChild::end(): Unable to end the child.");
  }
}

platform::Status QueryChild::start(const std::wstring& command, const std::wstring& folder,
                                   const platform::StandardHandles& handles) {
  auto& processes = platform::current().processes;
  auto job = processes.CreateJobObjectW();  // before the child, so that the child gets into it at once
  auto started = processes.CreateProcessW(command, true, platform::kNormalPriorityClass, folder, handles);
  if (!started) {
    return {false, started.error};
  }
  process_ = std::move(started.value);
  running_ = true;
  if (!job) {
    logNoJob(job.error);
    return {true, platform::kErrorSuccess};
  }
  const platform::Status assigned = processes.AssignProcessToJobObject(job.value.get(), process_.process.get());
  if (assigned) {
    job_ = std::move(job.value);
  } else if (wait(0).value != platform::kWaitObject0) {  // a job refuses a child that has ended, which needs none
    logNoJob(assigned.error);
  }
  return {true, platform::kErrorSuccess};
}

platform::Result<std::uint32_t> QueryChild::wait(std::uint32_t milliseconds) {
  const auto waited = platform::current().objects.WaitForSingleObject(process_.process.get(), milliseconds);
  if (waited && waited.value == platform::kWaitObject0) {
    running_ = false;
  }
  return waited;
}

platform::Result<std::uint32_t> QueryChild::exitCode() const {
  return platform::current().processes.GetExitCodeProcess(process_.process.get());
}

void QueryChild::end() const {
  auto& processes = platform::current().processes;
  if (job_ && processes.TerminateJobObject(job_.get(), kEndedExitCode)) {
    return;
  }
  const platform::Status ended = processes.TerminateProcess(process_.process.get(), kEndedExitCode);
  if (!ended) {
    CORE::log(CORE::kWarn, L"ScriptChild::end(): Unable to end the child: %s", CORE::systemErrorText(ended.error));
  }
}
