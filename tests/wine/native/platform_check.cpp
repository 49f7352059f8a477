// platform_check [--offset=MINUTES] [URL]: checks the Windows layer against the Windows it runs on, service by service,
// in the Test Anything Protocol. URL is an https URL that answers 200; --offset is what local time must be ahead of
// UTC.

#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/windows/windows_platform.h"
#include "tests/wine/native/arguments.h"
#include "tests/wine/native/check/tap.h"

int main() {
  platform::install(&platform::windowsPlatform());
  int offset = check::kAnyOffset;
  std::wstring url;
  for (const std::wstring& argument : native::arguments()) {
    if (argument.starts_with(L"--child=")) {
      return check::runAsChild(argument.substr(8));
    }
    if (argument.starts_with(L"--offset=")) {
      offset = std::stoi(argument.substr(9));
    } else {
      url = argument;
    }
  }
  check::note("ANSI code page " + std::to_string(::GetACP()));
  check::clock(offset);
  check::digests();
  check::files();
  check::internet();
  check::objects();
  check::processes();
  check::registry();
  check::security();
  check::system();
  check::text();
  check::winHttp(url);
  check::removeScratchFolder();
  return check::finish();
}
