#include "core/convert.h"
#include "core/log_line.h"
#include "core/sensitive_names.h"
#include "core/text.h"
#include "fuzz/check.h"
#include "fuzz/input.h"

// What a log must not show: the masked word in a line, the value of an entry with a sensitive name.

namespace {

bool standsAt(std::string_view text, std::size_t at) {
  const auto is = [&](std::size_t i, char small) { return text[i] == small || text[i] == small - 32; };
  return at + 3 <= text.size() && is(at, 'v') && is(at + 1, 't') && is(at + 2, 'x');
}

std::string maskedPlainly(std::string text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (standsAt(text, at)) {
      text[at] = text[at + 1] = text[at + 2] = '*';
    }
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Platform platform;
  const std::string line(fuzz::bytes(data, size));
  std::string masked = line;
  CORE::maskLegacyWord(masked);
  FUZZ_CHECK(masked == maskedPlainly(line));
  const std::wstring text = CORE::toWideLossy(line);

  const bool sensitive = CORE::isSensitiveName(text);
  FUZZ_CHECK(sensitive == CORE::isSensitiveName(CORE::lowered(text)));
  if (sensitive) {
    for (const wchar_t* const more : {L" ", L"s", L"\\"}) {
      FUZZ_CHECK(!CORE::isSensitiveName(text + more));
      FUZZ_CHECK(!CORE::isSensitiveName(more + text));
    }
    FUZZ_CHECK(!CORE::isSensitiveName(text + std::wstring(1, L'\0')));
  }
  return 0;
}
