// platform_check FOLDER: checks the Windows layer against the Windows it runs on, service by service, in the Test
// Anything Protocol; FOLDER is an empty one to work in. What every run of the shipped program shows is left out.

#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/windows/windows_platform.h"
#include "scripts/wine/native/arguments.h"
#include "tests/wine/native/check/tap.h"
#include "upload/digest/hash_generator.h"

namespace check {
namespace {

int count = 0;
int failures = 0;

std::string digestOf(std::string_view data, std::string_view key, std::uint32_t algorithm) {
  HashGenerator generator;
  generator.SetAlgorithm(algorithm, !key.empty());
  std::string text;
  generator.HashAndFormat(data, key, HashOutputFormat::HexLower, text);
  return text;
}

}  // namespace

void that(bool passed, std::string_view name) {
  failures += passed ? 0 : 1;
  std::printf("%sok %d - %s\n", passed ? "" : "not ", ++count, std::string(name).c_str());
  std::fflush(stdout);
}

}  // namespace check

int main() {
  platform::install(&platform::windowsPlatform());
  std::filesystem::current_path(native::arguments().at(0));
  check::certificates();
  // RFC 1321, appendix A.5, and RFC 4231, test case 2.
  check::that(check::digestOf("abc", "", HashAlgorithm::kMd5) == "900150983cd24fb0d6963f7d28e17f72", "digests: MD5");
  check::that(check::digestOf("what do ya want for nothing?", "Jefe", HashAlgorithm::kSha256) ==
                  "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
              "digests: HMAC-SHA-256");
  check::storage();
  check::crash();
  std::printf("1..%d\n", check::count);
  return check::failures == 0 ? 0 : 1;
}
