// platform_check FOLDER: checks the Windows layer against the Windows it runs on, service by service, in the Test
// Anything Protocol; FOLDER is an empty one to work in. What every run of the shipped program shows is left out.

#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/platform.h"
#include "platform/windows/windows_platform.h"
#include "tests/wine/native/arguments.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

int count = 0;
int failures = 0;

}  // namespace

void that(bool passed, std::string_view name) {
  failures += passed ? 0 : 1;
  std::printf("%sok %d - %s\n", passed ? "" : "not ", ++count, std::string(name).c_str());
  std::fflush(stdout);
}

void equal(std::uint64_t got, std::uint64_t wanted, std::string_view name) {
  that(got == wanted, name);
  if (got != wanted) {
    std::printf("# got %s, wanted %s\n", std::to_string(got).c_str(), std::to_string(wanted).c_str());
  }
}

int finish() {
  std::printf("1..%d\n", count);
  return failures == 0 ? 0 : 1;
}

}  // namespace check

int main() {
  platform::install(&platform::windowsPlatform());
  std::filesystem::current_path(native::arguments().at(0));
  check::certificates();
  check::digests();
  check::storage();
  check::crash();
  return check::finish();
}
