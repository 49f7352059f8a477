#pragma once

#include "platform/platform.h"
#include "tests/sim/certificates.h"
#include "tests/sim/clock.h"
#include "tests/sim/crash.h"
#include "tests/sim/digests.h"
#include "tests/sim/faults.h"
#include "tests/sim/files.h"
#include "tests/sim/internet.h"
#include "tests/sim/kernel.h"
#include "tests/sim/objects.h"
#include "tests/sim/processes.h"
#include "tests/sim/registry.h"
#include "tests/sim/security.h"
#include "tests/sim/system.h"
#include "tests/sim/text.h"
#include "tests/sim/winhttp.h"

namespace sim {

/// A small Windows in memory for one test. It is the installed platform from its construction to its destruction, which
/// ends all of its processes and worker threads. No thread of the program may use it any more by then.
class Windows {
 public:
  Windows() { install(&platform_); }
  ~Windows() {
    processes.endAll();
    winHttp.endAll();
    kernel.joinThreads();
    install(nullptr);
  }
  Windows(const Windows&) = delete;
  Windows& operator=(const Windows&) = delete;

  Faults faults;
  Kernel kernel{faults};
  Certificates certificates{kernel};
  Clock clock{kernel};
  Crash crash{kernel};
  Digests digests{kernel};
  Files files{kernel};
  Heap heap{kernel};
  Internet internet{kernel};
  Objects objects{kernel};
  Processes processes{kernel};
  Registry registry{kernel};
  Security security{kernel};
  System system{kernel, files};
  Text text{kernel};
  WinHttp winHttp{kernel, certificates};

  /// Returns what the program has open, by kind ("2 event, 1 registry key"): handles, keys, identifiers, argument
  /// vectors and heap blocks. After that come its misuses: of handles that were closed, foreign or of another kind, and
  /// of calls. Empty when there is neither.
  std::string openHandlesText() const { return kernel.openHandlesText(); }

 private:
  const platform::Platform platform_{certificates, clock,     crash,    digests,  files,  heap, internet,
                                     objects,      processes, registry, security, system, text, winHttp};
};

}  // namespace sim
