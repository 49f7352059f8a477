#include "tests/sim/windows.h"

namespace sim {

Windows::Windows()
    : platform_{clock, digests, files, heap, internet, objects, processes, registry, security, system, text, winHttp} {
  platform::install(&platform_);
}

Windows::~Windows() {
  processes.endAll();
  winHttp.endAll();
  kernel.joinThreads();
  platform::install(nullptr);
}

}  // namespace sim
