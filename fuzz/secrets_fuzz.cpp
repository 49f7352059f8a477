#include "core/base/unicode.h"
#include "core/log/log_line.h"
#include "core/redaction/legacy_word.h"
#include "core/redaction/sensitive_names.h"
#include "core/text/text.h"
#include "fuzz/fuzz.h"
#include "tests/sim/windows.h"

// Checks what a log must not show: the masked word in a line, and the value of an entry with a sensitive name.

namespace {

std::string maskedPlainly(std::string text) {
  for (std::size_t at = 0; at + 3 <= text.size(); ++at) {
    const auto is = [&](std::size_t i, char small) { return text[at + i] == small || text[at + i] == small - 32; };
    if (is(0, 'v') && is(1, 't') && is(2, 'x')) {
      text.replace(at, 3, "***");
    }
  }
  return text;
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  std::string masked(input);
  CORE::maskLegacyWord(masked);
  FUZZ_CHECK(masked == maskedPlainly(std::string(input)));

  const std::wstring text = CORE::toWideLossy(input);
  const bool sensitive = CORE::isSensitiveName(text);
  FUZZ_CHECK(sensitive == CORE::isSensitiveName(CORE::lowered(text)));
  for (const std::wstring& more :
       {std::wstring(L" "), std::wstring(L"s"), std::wstring(L"\\"), std::wstring(1, L'\0')}) {
    FUZZ_CHECK(!sensitive || (!CORE::isSensitiveName(text + more) && !CORE::isSensitiveName(more + text)));
  }
}
