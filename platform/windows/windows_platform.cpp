#include "platform/windows/windows_platform.h"

#include "platform/windows/windows_certificates.h"
#include "platform/windows/windows_clock.h"
#include "platform/windows/windows_crash.h"
#include "platform/windows/windows_digests.h"
#include "platform/windows/windows_files.h"
#include "platform/windows/windows_heap.h"
#include "platform/windows/windows_internet.h"
#include "platform/windows/windows_objects.h"
#include "platform/windows/windows_processes.h"
#include "platform/windows/windows_registry.h"
#include "platform/windows/windows_security.h"
#include "platform/windows/windows_system.h"
#include "platform/windows/windows_text.h"
#include "platform/windows/windows_winhttp.h"

namespace platform {

const Platform& windowsPlatform() {
  static const Platform* const services = new Platform{
      *new WindowsCertificates, *new WindowsClock,    *new WindowsCrash,   *new WindowsDigests,   *new WindowsFiles,
      *new WindowsHeap,         *new WindowsInternet, *new WindowsObjects, *new WindowsProcesses, *new WindowsRegistry,
      *new WindowsSecurity,     *new WindowsSystem,   *new WindowsText,    *new WindowsWinHttp,
  };
  return *services;
}

}  // namespace platform
